#pragma once
// A scene file type: reads and/or writes scene files of some suffixes.
//
// A plug-in module defines one static object of a class derived from
// SceneFileType; the base constructor registers it with
// SceneFileHandler::the() when the module is loaded, and the destructor
// unregisters it when the module is unloaded.
#include <iosfwd>
#include <list>
#include <string>

#include <kestrel/osg/Node.h>

namespace osg {

class SceneFileType {
public:
    // Flag values: 1 reads, 2 writes; a type that does both registers with 3.
    static constexpr UInt32 ReadSupported = 1u;
    static constexpr UInt32 WriteSupported = 2u;

    // suffixArray holds suffixByteCount / sizeof(const char*) suffixes
    // (without the dot). override: this type replaces an already registered
    // type for a shared suffix when its overridePriority is higher.
    SceneFileType(const char* suffixArray[], UInt16 suffixByteCount, bool override,
                  UInt32 overridePriority, UInt32 flags);
    SceneFileType(const SceneFileType&) = delete;
    SceneFileType& operator=(const SceneFileType&) = delete;
    virtual ~SceneFileType();

    virtual const char* getName() const = 0;
    const std::list<std::string>& suffixList() const { return _suffixes; }
    bool doOverride() const { return _override; }
    UInt32 getOverridePriority() const { return _priority; }
    UInt32 getFlags() const { return _flags; }
    bool canRead() const { return (_flags & ReadSupported) != 0; }
    bool canWrite() const { return (_flags & WriteSupported) != 0; }

    // Stream entry points: the defaults read/write nothing (null / false).
    virtual NodePtr read(std::istream& is, const char* fileName) const;
    virtual bool write(const NodePtr& node, std::ostream& os, const char* fileName) const;
    // File entry points. readFile opens the file as a binary stream and calls
    // read(); a file that cannot be opened gives null. writeFile hands write()
    // an in-memory stream: types that write by file name leave it empty; any
    // bytes written to it replace the file (through a temporary file renamed
    // into place) only when write() returned true, so a failed write never
    // truncates an existing file.
    virtual NodePtr readFile(const char* fileName) const;
    virtual bool writeFile(const NodePtr& node, const char* fileName) const;

private:
    std::list<std::string> _suffixes;
    bool _override;
    UInt32 _priority;
    UInt32 _flags;
};

} // namespace osg
