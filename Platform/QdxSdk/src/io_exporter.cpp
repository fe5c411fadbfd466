// The exporter: captures the scene and writes it through a temporary file.
#include <cstring>

#include "format_descriptor.h"
#include "impl.h"
#include "qdxsdk/io.h"

namespace qdxsdk {

QDX_IMPLEMENT_OBJECT(QdxExporter, QdxObject, "QdxExporter")
QdxExporter::QdxExporter(QdxManager& m, const char* name) : QdxObject(m, name) {}

bool QdxExporter::Initialize(const char* fileName, int fileFormat, QdxIOSettings*) {
    mInitialized = false;
    mStatus.Clear();
    mFileName = fileName ? fileName : "";
    if (mFileName.empty()) {
        mStatus.SetCode(QdxStatus::eInvalidParameter, "No file name");
        return false;
    }
    QdxIOPluginRegistry* r = GetQdxManager()->GetIOPluginRegistry();
    int format = fileFormat;
    if (format < 0) {
        const char* dot = std::strrchr(mFileName.c_str(), '.');
        format = dot ? r->FindWriterIDByExtension(dot + 1) : -1;
        if (format < 0) format = r->GetNativeWriterFormat();
    }
    const format::FormatDescriptor* d = format::FormatAt(format);
    if (!d || !d->write) {
        mStatus.SetCode(QdxStatus::eInvalidParameter,
                        "Invalid writer format " + std::to_string(fileFormat));
        return false;
    }
    mFormat = format;
    mVersion = d->versionNumbers[0];
    mInitialized = true;
    return true;
}

bool QdxExporter::SetFileExportVersion(const QdxString& version, QdxSceneRenamer::ERenamingMode) {
    if (!mInitialized) {
        mStatus.SetCode(QdxStatus::eFailure, "The exporter is not initialized");
        return false;
    }
    if (int number = format::VersionNumber(*format::FormatAt(mFormat), version.Buffer())) {
        mVersion = number;
        return true;
    }
    mStatus.SetCode(QdxStatus::eInvalidFileVersion,
                    std::string("Unknown file version '") + version.Buffer() + "'");
    return false;
}

QdxString QdxExporter::GetFileExportVersion() const {
    const format::FormatDescriptor* d = format::FormatAt(mFormat);
    const char* text = d ? format::VersionText(*d, mVersion) : nullptr;
    return QdxString(text ? text : "");
}

void QdxExporter::SetProgressCallback(QdxProgressCallback callback, void* args) {
    mCallback = callback;
    mCallbackArgs = args;
}

bool QdxExporter::Export(QdxDocument* document, bool) {
    if (!mInitialized) {
        mStatus.SetCode(QdxStatus::eFailure, "The exporter is not initialized");
        return false;
    }
    auto* scene = QdxCast<QdxScene>(document);
    if (!scene) {
        mStatus.SetCode(QdxStatus::eInvalidParameter, "Export needs a scene");
        return false;
    }
    mStatus.Clear();
    const format::FormatDescriptor* writer = format::FormatAt(mFormat);
    bool cancelled = false;
    auto progress = [&](double f) {
        if (mCallback && !cancelled)
            cancelled = !mCallback(mCallbackArgs, static_cast<float>(f * 100.0), "Writing");
    };
    if (mCallback) mCallback(mCallbackArgs, 0.0f, "Writing");
    bool ok = format::WriteFileAtomically(
        mFileName,
        [&](const format::Sink& sink) {
            format::Sink guarded = [&](const void* d, size_t n) {
                return !cancelled && sink(d, n);
            };
            return writer->write(scene, mVersion, guarded, mStatus, progress);
        },
        mStatus);
    if (cancelled) mStatus.SetCode(QdxStatus::eFailure, "The export was cancelled");
    if (ok && mCallback) mCallback(mCallbackArgs, 100.0f, "Done");
    return ok && !cancelled;
}

} // namespace qdxsdk
