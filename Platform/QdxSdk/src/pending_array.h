// The doubles of an array that stayed in its file: where they are stored
// (raw or as one zstd frame) and, for ranged reads, a decompression stream
// whose position is kept, so that ranges read front to back continue where
// the last one ended.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "source_file.h"

struct ZSTD_DCtx_s;

namespace qdxsdk::detail {

class ArrayFaults;

class PendingArray {
public:
    enum class Codec : uint8_t { Raw, Zstd };
    // count doubles stored in `stored` bytes at offset of file.
    PendingArray(std::shared_ptr<format::SourceFile> file, uint64_t offset, uint64_t stored,
                 Codec codec, size_t count);
    ~PendingArray();
    PendingArray(const PendingArray&) = delete;
    PendingArray& operator=(const PendingArray&) = delete;

    size_t Count() const { return mCount; }
    bool IsDecoded() const { return mDecoded.load(std::memory_order_acquire); }
    // The names a fault message gives, and the list it goes to.
    void Attach(std::string objectName, std::string arrayName, std::shared_ptr<ArrayFaults> faults);
    // Decodes every element into out (resized to Count()), once: later calls
    // return at once. Data that cannot be read gives zeros and one fault.
    void DecodeAll(std::vector<double>& out);
    // Elements [first, first + count) into out, streamed. Once DecodeAll has
    // run they are copied from decoded, the array's storage, instead.
    void ReadRange(size_t first, size_t count, double* out, const std::vector<double>& decoded);

private:
    // Under mLock. False, with the fault recorded, when the data cannot be
    // read; out is then all zeros.
    bool Produce(size_t first, size_t count, double* out);
    bool ProduceZstd(size_t first, size_t count, double* out);
    // Decodes the next size bytes of the stream into out (or nowhere, for a
    // null out, in steps through a scratch buffer).
    bool Stream(uint8_t* out, size_t size);
    bool StreamInto(uint8_t* out, size_t size);
    bool Restart();
    void CloseStream();
    void Fault(const char* why);
    // Read-ahead: after a streamed range, a worker thread decodes the next
    // range of the same size while the caller uses this one. The stream
    // belongs to the worker while it is busy; everything that touches the
    // stream waits for it first.
    void WaitForReadAhead();
    void StartReadAhead(size_t bytes);
    void StopReadAhead();
    void ReadAheadLoop();

    std::mutex mLock;
    std::atomic<bool> mDecoded{false};
    std::shared_ptr<format::SourceFile> mFile;
    uint64_t mOffset;
    uint64_t mStored;
    Codec mCodec;
    size_t mCount;
    bool mFailed = false;
    // True while DecodeAll decodes the whole array into one buffer.
    bool mWhole = false;
    std::string mObjectName, mArrayName;
    std::shared_ptr<ArrayFaults> mFaults;
    // The stream: input read so far (bytes of the stored data), the input
    // block and what of it is used, and the output produced so far (bytes).
    ZSTD_DCtx_s* mStream = nullptr;
    std::unique_ptr<uint8_t[]> mIn;
    size_t mInUsed = 0, mInSize = 0;
    uint64_t mReadAt = 0, mOutAt = 0;
    // The read-ahead: its thread, what it was asked to decode, and what it
    // has: the output bytes [mAheadAt, mAheadAt + mAhead.size()) when it
    // succeeded. mAheadUsed counts the bytes of it already handed out.
    std::thread mWorker;
    std::mutex mAheadLock;
    std::condition_variable mAheadSignal;
    bool mAheadBusy = false, mAheadStop = false, mAheadOk = false;
    size_t mAheadWanted = 0, mAheadUsed = 0;
    uint64_t mAheadAt = 0;
    std::vector<uint8_t> mAhead;
};

} // namespace qdxsdk::detail
