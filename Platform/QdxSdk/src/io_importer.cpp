// The importer: reads and checks a whole file (optionally on a worker
// thread), then fills the scene on the caller's thread.
#include <atomic>
#include <cstdio>

#include "format_descriptor.h"
#include "impl.h"
#include "qdxsdk/anim.h"
#include "qdxsdk/io.h"

namespace qdxsdk {

struct QdxImporter::Job {
    std::string file;
    const format::FormatDescriptor* format = nullptr;
    std::atomic<float> progress{0.0f};
    std::atomic<bool> done{false};
    std::unique_ptr<format::Decoded> decoded;
    QdxStatus status;

    void Run() {
        format::MappedFile bytes;
        auto report = [this](double f) { progress.store(static_cast<float>(f * 90.0)); };
        if (bytes.Open(file, status)) {
            progress.store(5.0f);
            decoded = format->read(
                {bytes.Data(), bytes.Size(), file, bytes.Device(), bytes.Inode()}, status, report);
        }
        done.store(true);
    }
};

QDX_IMPLEMENT_OBJECT(QdxImporter, QdxObject, "QdxImporter")
QdxImporter::QdxImporter(QdxManager& m, const char* name) : QdxObject(m, name) {}

QdxImporter::~QdxImporter() {
    if (mThread.joinable()) mThread.join();
}

bool QdxImporter::Initialize(const char* fileName, int fileFormat, QdxIOSettings*) {
    mInitialized = false;
    mTakes.clear();
    mStatus.Clear();
    mFileName = fileName ? fileName : "";
    FILE* f = std::fopen(mFileName.c_str(), "rb");
    if (!f) {
        mStatus.SetCode(QdxStatus::eFailure, "File not found: '" + mFileName + "'");
        return false;
    }
    uint8_t head[format::kHeadBytes];
    size_t n = std::fread(head, 1, sizeof head, f);
    std::fclose(f);
    int format = fileFormat;
    if (format < 0) {
        QdxIOPluginRegistry* r = GetQdxManager()->GetIOPluginRegistry();
        if (!r->DetectReaderFileFormat(mFileName.c_str(), format)) {
            mStatus.SetCode(QdxStatus::eInvalidFile,
                            "Unrecognized file format: '" + mFileName + "'");
            return false;
        }
    }
    const format::FormatDescriptor* descriptor = format::FormatAt(format);
    if (!descriptor) {
        mStatus.SetCode(QdxStatus::eInvalidParameter, "Invalid file format index");
        return false;
    }
    if (!descriptor->readVersion(head, n, mVersion, mStatus)) return false;
    mFormat = format;
    mInitialized = true;
    return true;
}

bool QdxImporter::Import(QdxDocument* document, bool nonBlocking) {
    if (!mInitialized) {
        mStatus.SetCode(QdxStatus::eFailure, "The importer is not initialized");
        return false;
    }
    auto* scene = QdxCast<QdxScene>(document);
    if (!scene) {
        mStatus.SetCode(QdxStatus::eInvalidParameter, "Import needs a scene");
        return false;
    }
    if (mJob && !mJob->done.load()) {
        mStatus.SetCode(QdxStatus::eFailure, "An import is already running");
        return false;
    }
    if (mThread.joinable()) mThread.join();
    mJob = std::make_shared<Job>();
    mJob->file = mFileName;
    mJob->format = format::FormatAt(mFormat);
    mTarget = scene;
    mStatus.Clear();
    if (nonBlocking) {
        mThread = std::thread([job = mJob] { job->Run(); });
        return true;
    }
    mJob->Run();
    Finish();
    return !mStatus.Error();
}

void QdxImporter::Finish() {
    if (!mJob || !mTarget) return;
    if (mThread.joinable()) mThread.join();
    mStatus = mJob->status;
    if (!mStatus.Error() && mJob->decoded) mJob->decoded->Publish(mTarget, mStatus);
    mJob->decoded.reset();
    mJob->progress.store(100.0f);
    if (!mStatus.Error()) {
        mTakes.clear();
        for (int i = 0; i < mTarget->GetSrcObjectCount<QdxAnimStack>(); ++i) {
            QdxAnimStack* s = mTarget->GetSrcObject<QdxAnimStack>(i);
            QdxTakeInfo info;
            info.mName = s->GetName();
            info.mDescription = s->Description.Get();
            info.mLocalTimeSpan = s->GetLocalTimeSpan();
            info.mReferenceTimeSpan = s->GetReferenceTimeSpan();
            for (int l = 0; l < s->GetLayerCount(); ++l)
                info.mLayerInfoList.push_back({QdxString(s->GetLayer(l)->GetName()), l});
            mTakes.push_back(std::move(info));
        }
    }
    mTarget = nullptr;
}

bool QdxImporter::IsImporting(QdxStatus& status) {
    if (mJob && mTarget && !mJob->done.load()) {
        status.Clear();
        return true;
    }
    Finish();
    status = mStatus;
    return false;
}

float QdxImporter::GetProgress(QdxString* text) const {
    float p = mJob ? mJob->progress.load() : 0.0f;
    if (text) *text = p >= 100.0f ? "Done" : "Reading";
    return p;
}

void QdxImporter::GetFileVersion(int& major, int& minor, int& revision) const {
    major = mVersion;
    minor = 0;
    revision = 0;
}

QdxString QdxImporter::GetFileVersionString() const {
    const format::FormatDescriptor* d = format::FormatAt(mFormat);
    const char* text = d ? format::VersionText(*d, mVersion) : nullptr;
    return QdxString(text ? text : std::to_string(mVersion));
}

bool QdxImporter::IsBinary() const {
    const format::FormatDescriptor* d = format::FormatAt(mFormat);
    return d && d->binary;
}

int QdxImporter::GetAnimStackCount() const {
    return static_cast<int>(mTakes.size());
}

const QdxTakeInfo* QdxImporter::GetTakeInfo(int index) const {
    return index >= 0 && index < GetAnimStackCount() ? &mTakes[static_cast<size_t>(index)]
                                                     : nullptr;
}

QdxString QdxImporter::GetActiveAnimStackName() const {
    return mTakes.empty() ? QdxString() : mTakes.front().mName;
}

} // namespace qdxsdk
