#pragma once
// Imports one scene file through the host's scene-file handler the way the
// program wants it: the file is checked first (with the system's reason when
// it cannot be read), the import runs with the scene file's folder as the
// current folder so that relative texture paths resolve beside the scene,
// extra texture folders are offered through a temporary folder of links, and
// whatever the plug-in prints is captured rather than shown.
#include <string>
#include <vector>

#include <kestrel/osg/Node.h>

struct ImportResult {
    osg::NodePtr root;                        // null on failure
    std::string error;                        // why it failed
    std::vector<std::string> diagnostics;     // what the plug-in printed or logged
    std::vector<std::string> missingTextures; // named by the loader, found nowhere
    std::vector<std::string> loadedTextures;
    double seconds = 0.0; // wall-clock time of the import
};

class SceneImporter {
public:
    // texturePaths: further folders searched for textures, after the scene's
    // own folder.
    SceneImporter(std::vector<std::string> texturePaths, bool progress);

    ImportResult import(const std::string& file) const;

    // Empty when the file can be opened for reading, otherwise a message
    // with the system's reason.
    static std::string checkReadable(const std::string& file);

private:
    std::vector<std::string> _texturePaths;
    bool _progress;
};
