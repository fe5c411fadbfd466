#pragma once
// A small software rasterizer that draws an imported scene offscreen:
// triangles of every visible geometry with a z-buffer, the materials'
// diffuse colours and diffuse textures, one directional light plus ambient
// light. The view comes from a camera of the scene or frames the scene's
// bounding box. Images are written through the host's image class.
#include <string>
#include <vector>

#include <kestrel/osg/Node.h>

class SceneRenderer {
public:
    SceneRenderer(unsigned width, unsigned height);

    // cameraName empty: the scene's first camera, else a framing view.
    // False with a message when the named camera does not exist.
    bool render(const osg::NodePtr& root, const std::string& cameraName, std::string& error);
    bool write(const std::string& path, std::string& error) const;

    // RGB, 8 bits, rows top first.
    const std::vector<unsigned char>& pixels() const { return _rgb; }
    unsigned width() const { return _width; }
    unsigned height() const { return _height; }

    // The colour of pixels no geometry covers.
    static constexpr unsigned char Background[3] = {36, 40, 48};

private:
    unsigned _width, _height;
    std::vector<unsigned char> _rgb;
};
