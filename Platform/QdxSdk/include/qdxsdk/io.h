// Reading and writing files: IO settings, the plug-in registry of readers
// and writers, the importer and the exporter.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "qdxsdk/object.h"
#include "qdxsdk/time.h"

namespace qdxsdk {

class QdxScene;
class QdxDocument;

// Boolean (and other) options addressed by "|"-separated paths.
class QdxIOSettings : public QdxObject {
    QDX_DECLARE_OBJECT(QdxIOSettings)
public:
    bool SetBoolProp(const char* path, bool value);
    bool GetBoolProp(const char* path, bool defaultValue) const;
};

// Describes the readers and writers. Readers and writers share one list of
// formats and its indices; the indices are stable: 0 is the Qdx binary
// flavour ("Qdx binary (*.qdx)"), 1 the Qdx text flavour ("Qdx ascii
// (*.qdx)"), foreign formats follow.
class QdxIOPluginRegistry {
public:
    int GetReaderFormatCount() const;
    const char* GetReaderFormatDescription(int format) const;
    const char* GetReaderFormatExtension(int format) const;
    int GetWriterFormatCount() const;
    const char* GetWriterFormatDescription(int format) const;
    const char* GetWriterFormatExtension(int format) const;
    // Null-terminated list of version texts a writer can produce, newest
    // first; null for an unknown format.
    const char** GetWritableVersions(int format) const;
    int FindReaderIDByExtension(const char* extension) const;
    int FindWriterIDByExtension(const char* extension) const;
    int FindReaderIDByDescription(const char* description) const;
    int FindWriterIDByDescription(const char* description) const;
    // The first format of the list.
    int GetNativeWriterFormat() const { return 0; }
    int GetNativeReaderFormat() const { return 0; }
    // A format's short lower-case name for command lines ("binary",
    // "ascii"), null for an unknown index; the index of a name (case
    // ignored), -1 when none has it.
    const char* GetFormatName(int format) const;
    int FindFormatIDByName(const char* name) const;
    // Whether a format's encoding is binary (false for text and unknown).
    bool IsBinaryFormat(int format) const;
    // The reader for a file, by its content, then by its suffix; false when
    // neither tells.
    bool DetectReaderFileFormat(const char* fileName, int& format) const;
};

// Progress callback: return false to cancel.
using QdxProgressCallback = bool (*)(void* args, float percentage, const char* status);

class QdxSceneRenamer {
public:
    enum ERenamingMode { eNone = 0 };
};

struct QdxLayerInfo {
    QdxString mName;
    int mLayerID = 0;
};

struct QdxTakeInfo {
    QdxString mName;
    QdxString mDescription;
    QdxTimeSpan mLocalTimeSpan;
    QdxTimeSpan mReferenceTimeSpan;
    std::vector<QdxLayerInfo> mLayerInfoList;
};

// Reads a file into a scene. The file is read completely and checked before
// the scene is touched: a bad file leaves the scene as it was.
class QdxImporter : public QdxObject {
    QDX_DECLARE_OBJECT(QdxImporter)
public:
    ~QdxImporter() override;
    // Opens the file and reads its header. format -1 detects the format by
    // content, then by suffix.
    bool Initialize(const char* fileName, int fileFormat = -1, QdxIOSettings* settings = nullptr);
    // Reads into scene. Non-blocking imports run on a worker thread; poll
    // IsImporting and GetProgress, the scene is filled when IsImporting
    // turns false with a success status.
    bool Import(QdxDocument* document, bool nonBlocking = false);
    bool IsImporting(QdxStatus& status);
    // 0..100.
    float GetProgress(QdxString* status = nullptr) const;
    void GetFileVersion(int& major, int& minor, int& revision) const;
    QdxString GetFileVersionString() const;
    int GetFileFormat() const { return mFormat; }
    // Whether the file's format has a binary encoding.
    bool IsBinary() const;
    int GetAnimStackCount() const;
    const QdxTakeInfo* GetTakeInfo(int index) const;
    QdxString GetActiveAnimStackName() const;
    QdxStatus& GetStatus() { return mStatus; }
    const QdxStatus& GetStatus() const { return mStatus; }
    const char* GetFileName() const { return mFileName.c_str(); }

    struct Job;

private:
    void Finish();
    std::string mFileName;
    int mFormat = -1;
    int mVersion = 0;
    QdxStatus mStatus;
    std::vector<QdxTakeInfo> mTakes;
    std::shared_ptr<Job> mJob;
    std::thread mThread;
    QdxScene* mTarget = nullptr;
    bool mInitialized = false;
};

// Writes a scene. The file is written to a temporary file beside the target
// and renamed into place when complete; a failed export leaves any existing
// file untouched.
class QdxExporter : public QdxObject {
    QDX_DECLARE_OBJECT(QdxExporter)
public:
    // format -1 picks the writer by the file's suffix, else the native one.
    bool Initialize(const char* fileName, int fileFormat = -1, QdxIOSettings* settings = nullptr);
    // One of the writer's writable versions (exact text).
    bool SetFileExportVersion(const QdxString& version,
                              QdxSceneRenamer::ERenamingMode mode = QdxSceneRenamer::eNone);
    QdxString GetFileExportVersion() const;
    void SetProgressCallback(QdxProgressCallback callback, void* args = nullptr);
    bool Export(QdxDocument* document, bool nonBlocking = false);
    int GetFileFormat() const { return mFormat; }
    QdxStatus& GetStatus() { return mStatus; }
    const QdxStatus& GetStatus() const { return mStatus; }

private:
    std::string mFileName;
    int mFormat = -1;
    int mVersion = 0;
    QdxStatus mStatus;
    QdxProgressCallback mCallback = nullptr;
    void* mCallbackArgs = nullptr;
    bool mInitialized = false;
};

} // namespace qdxsdk
