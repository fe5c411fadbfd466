// Arrays left in their file, decoded whole or streamed by range.
#include "pending_array.h"

#define ZSTD_STATIC_LINKING_ONLY
#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "array_faults.h"

namespace qdxsdk::detail {

namespace {
// Input is read in blocks of this size; skipped output goes through a
// scratch buffer of the same size.
constexpr size_t kBlock = size_t(1) << 20;
// The largest range decoded ahead: larger ranges are decoded as they are
// asked for.
constexpr size_t kMaxReadAhead = size_t(16) << 20;
} // namespace

PendingArray::PendingArray(std::shared_ptr<format::SourceFile> file, uint64_t offset,
                           uint64_t stored, Codec codec, size_t count)
    : mFile(std::move(file)), mOffset(offset), mStored(stored), mCodec(codec), mCount(count) {}

PendingArray::~PendingArray() {
    CloseStream();
}

void PendingArray::Attach(std::string objectName, std::string arrayName,
                          std::shared_ptr<ArrayFaults> faults) {
    std::lock_guard<std::mutex> lock(mLock);
    mObjectName = std::move(objectName);
    mArrayName = std::move(arrayName);
    mFaults = std::move(faults);
}

void PendingArray::DecodeAll(std::vector<double>& out) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mDecoded.load(std::memory_order_relaxed)) return;
    out.resize(mCount);
    // Decoded in one pass straight into out: the stream needs no window
    // buffer of its own when its output stays where it is.
    CloseStream();
    mWhole = true;
    Produce(0, mCount, out.data());
    mWhole = false;
    // Everything is in memory now: the file and the stream are not needed.
    CloseStream();
    mFile.reset();
    mDecoded.store(true, std::memory_order_release);
}

void PendingArray::ReadRange(size_t first, size_t count, double* out,
                             const std::vector<double>& decoded) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mDecoded.load(std::memory_order_relaxed)) {
        if (first <= decoded.size() && count <= decoded.size() - first)
            std::copy_n(decoded.data() + first, count, out);
        else
            std::fill_n(out, count, 0.0);
        return;
    }
    if (first > mCount || count > mCount - first) {
        std::fill_n(out, count, 0.0);
        return;
    }
    Produce(first, count, out);
}

bool PendingArray::Produce(size_t first, size_t count, double* out) {
    bool ok = !mFailed && mFile;
    if (ok && count > 0) {
        if (mCodec == Codec::Raw)
            ok = mFile->Read(out, count * sizeof(double), mOffset + first * sizeof(double));
        else
            ok = ProduceZstd(first, count, out);
        if (!ok)
            Fault(mCodec == Codec::Raw ? "the file is shorter than when it was read"
                                       : "its compressed data is broken or cut short");
    }
    if (!ok) std::fill_n(out, count, 0.0);
    return ok;
}

bool PendingArray::ProduceZstd(size_t first, size_t count, double* out) {
    uint64_t from = uint64_t(first) * sizeof(double);
    size_t bytes = count * sizeof(double);
    uint8_t* to = reinterpret_cast<uint8_t*>(out);
    WaitForReadAhead();
    // What the worker decoded ahead serves the range's start when the range
    // continues where the last one ended; a failed read-ahead, or one that
    // the range skips, leaves the stream somewhere unknown or past it, and
    // the stream starts again.
    if (mAheadWanted > 0) {
        const bool fits = mAheadOk && from == mAheadAt + mAheadUsed;
        if (fits) {
            const size_t n = std::min(bytes, mAhead.size() - mAheadUsed);
            std::memcpy(to, mAhead.data() + mAheadUsed, n);
            mAheadUsed += n;
            from += n;
            to += n;
            bytes -= n;
        }
        if (!fits && !mAheadOk) CloseStream();
        if (mAheadUsed == mAhead.size() || !fits) mAheadWanted = 0;
    }
    if (bytes > 0) {
        if (!mStream || from < mOutAt)
            if (!Restart()) return false;
        if (!Stream(nullptr, static_cast<size_t>(from - mOutAt))) return false;
        if (!Stream(to, bytes)) return false;
    }
    // At the end the stream is done: its memory goes back until a range
    // before this position starts it again.
    if (mOutAt == uint64_t(mCount) * sizeof(double)) {
        if (mAheadWanted == 0) CloseStream();
    } else if (!mWhole && mAheadWanted == 0) {
        StartReadAhead(count * sizeof(double));
    }
    return true;
}

void PendingArray::WaitForReadAhead() {
    std::unique_lock<std::mutex> lock(mAheadLock);
    mAheadSignal.wait(lock, [this] { return !mAheadBusy; });
}

void PendingArray::StartReadAhead(size_t bytes) {
    static const bool severalCores = std::thread::hardware_concurrency() > 1;
    if (!severalCores || !mStream) return;
    bytes = std::min<uint64_t>({bytes, kMaxReadAhead, uint64_t(mCount) * sizeof(double) - mOutAt});
    if (bytes == 0) return;
    if (!mWorker.joinable()) {
        mAheadStop = false;
        try {
            mWorker = std::thread([this] { ReadAheadLoop(); });
        } catch (...) {
            return; // no thread: ranges are decoded as they are asked for
        }
    }
    std::lock_guard<std::mutex> lock(mAheadLock);
    mAheadAt = mOutAt;
    mAheadUsed = 0;
    mAheadWanted = bytes;
    mAheadBusy = true;
    mAheadSignal.notify_all();
}

void PendingArray::ReadAheadLoop() {
    std::unique_lock<std::mutex> lock(mAheadLock);
    while (true) {
        mAheadSignal.wait(lock, [this] { return mAheadBusy || mAheadStop; });
        if (mAheadStop) return;
        const size_t wanted = mAheadWanted;
        lock.unlock();
        bool ok = true;
        try {
            mAhead.resize(wanted);
        } catch (...) {
            ok = false;
        }
        ok = ok && StreamInto(mAhead.data(), wanted);
        lock.lock();
        mAheadOk = ok;
        mAheadBusy = false;
        mAheadSignal.notify_all();
    }
}

void PendingArray::StopReadAhead() {
    if (!mWorker.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mAheadLock);
        mAheadStop = true;
        mAheadSignal.notify_all();
    }
    mWorker.join();
    mAheadBusy = false;
    mAheadWanted = mAheadUsed = 0;
    mAhead = std::vector<uint8_t>();
}

bool PendingArray::Restart() {
    if (!mStream) mStream = ZSTD_createDCtx();
    if (!mStream) return false;
    ZSTD_DCtx_reset(mStream, ZSTD_reset_session_only);
    ZSTD_DCtx_setParameter(mStream, ZSTD_d_stableOutBuffer, mWhole ? 1 : 0);
    if (!mIn) mIn.reset(new (std::nothrow) uint8_t[kBlock]);
    if (!mIn) return false;
    mInUsed = mInSize = 0;
    mReadAt = mOutAt = 0;
    return true;
}

bool PendingArray::Stream(uint8_t* out, size_t size) {
    if (out) return StreamInto(out, size);
    if (size == 0) return true;
    std::unique_ptr<uint8_t[]> scratch(new (std::nothrow) uint8_t[std::min(size, kBlock)]);
    if (!scratch) return false;
    while (size > 0) {
        const size_t step = std::min(size, kBlock);
        if (!StreamInto(scratch.get(), step)) return false;
        size -= step;
    }
    return true;
}

bool PendingArray::StreamInto(uint8_t* out, size_t size) {
    ZSTD_outBuffer o{out, size, 0};
    while (o.pos < o.size) {
        if (mInUsed == mInSize) {
            if (mReadAt >= mStored) return false; // the frame claims more than it holds
            const size_t n = static_cast<size_t>(std::min<uint64_t>(kBlock, mStored - mReadAt));
            if (!mFile->Read(mIn.get(), n, mOffset + mReadAt)) return false;
            mReadAt += n;
            mInUsed = 0;
            mInSize = n;
        }
        ZSTD_inBuffer i{mIn.get(), mInSize, mInUsed};
        const size_t r = ZSTD_decompressStream(mStream, &o, &i);
        mInUsed = i.pos;
        if (ZSTD_isError(r)) return false;
        // The frame ended before the output did.
        if (r == 0 && o.pos < o.size) return false;
    }
    mOutAt += size;
    return true;
}

void PendingArray::CloseStream() {
    WaitForReadAhead();
    StopReadAhead();
    if (mStream) ZSTD_freeDCtx(mStream);
    mStream = nullptr;
    mIn.reset();
    mInUsed = mInSize = 0;
    mReadAt = mOutAt = 0;
}

void PendingArray::Fault(const char* why) {
    mFailed = true;
    CloseStream();
    mFile.reset();
    if (mFaults)
        mFaults->Add("Array '" + mArrayName + "' of '" + mObjectName + "' could not be decoded (" +
                     why + "); its values read as zeros");
}

} // namespace qdxsdk::detail
