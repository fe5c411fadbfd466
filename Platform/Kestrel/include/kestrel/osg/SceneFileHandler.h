#pragma once
// The scene-file handler: the registry of scene file types.
//
// - Types register by suffix (case-insensitive). When two types share a
//   suffix, the later one takes it only if it asks to override and its
//   priority is higher than the current holder's; otherwise the first stays.
// - Option strings are kept per suffix, exactly as the suffix is written:
//   "qdx" and "QDX" are two different keys (a reader and a writer may ask
//   for different spellings). getOptions() returns null when none was set.
// - Read and write progress (0..100 percent) is passed to the registered
//   callbacks; each callback has an id for removal.
// - read()/write() dispatch by the file name's suffix; failures return null
//   / false and leave a message in getLastError(). No exception escapes.
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <kestrel/osg/SceneFileType.h>

namespace osg {

class SceneFileHandler {
public:
    using ProgressCallback = std::function<void(UInt32 percent)>;

    static SceneFileHandler& the();
    SceneFileHandler* operator->() { return this; }
    virtual ~SceneFileHandler() = default;

    bool addSceneFileType(SceneFileType& type);
    void subSceneFileType(SceneFileType& type);
    // The type registered for a suffix (any case, with or without a leading
    // dot), or null.
    SceneFileType* getFileType(const char* suffix) const;
    // The type for a file name's suffix (text after the last dot of the last
    // path component), or null.
    SceneFileType* getFileTypeForFile(const char* fileName) const;
    // Every registered type once, in registration order.
    std::vector<SceneFileType*> getFileTypes() const;
    // Suffix -> type, for listing.
    const std::map<std::string, SceneFileType*>& getSuffixMap() const { return _bySuffix; }

    virtual const char* getOptions(const char* suffix) const;
    virtual void setOptions(const char* suffix, const char* options);
    void clearOptions();

    NodePtr read(const char* fileName);
    bool write(const NodePtr& node, const char* fileName);
    const std::string& getLastError() const { return _lastError; }

    UInt32 addReadProgressCallback(ProgressCallback cb);
    UInt32 addWriteProgressCallback(ProgressCallback cb);
    void removeProgressCallback(UInt32 id);
    // Reports progress (clamped to 100) to the callbacks of that direction.
    void updateReadProgress(UInt32 percent);
    void updateWriteProgress(UInt32 percent);

protected:
    SceneFileHandler() = default;

private:
    struct Callback {
        UInt32 id;
        bool write;
        ProgressCallback fn;
    };
    void report(bool write, UInt32 percent);

    std::map<std::string, SceneFileType*> _bySuffix; // lower-case suffix
    std::vector<SceneFileType*> _types;
    std::map<std::string, std::string> _options; // suffix as given
    std::vector<Callback> _callbacks;
    UInt32 _nextId = 1;
    std::string _lastError;
};

} // namespace osg
