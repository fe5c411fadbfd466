// The binary flavour: a chunked container.
//
// header  "\x89QDX\r\n\x1a\n", u32 version, u32 flags (0)
// chunk   4-byte tag, u64 payload length, payload, u32 CRC-32 of the payload
// chunks  "STRS" (string table), "OBJS" (objects), "CONS" (connections),
//         "END " (empty), in this order; other tags are skipped.
// All numbers little-endian. docs/qdx-format.md is the full description.
#include <libdeflate.h>
#define ZSTD_STATIC_LINKING_ONLY
#include <zstd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <memory>
#include <new>
#include <thread>
#include <unordered_map>

#include "format_descriptor.h"
#include "pending_array.h"
#include "source_file.h"
#include "value_type.h"

namespace qdxsdk::format {

static_assert(std::endian::native == std::endian::little, "the binary flavour is little-endian");

namespace {
constexpr uint8_t kMagic[8] = {0x89, 'Q', 'D', 'X', '\r', '\n', 0x1a, '\n'};
constexpr size_t kCompressMin = 4096;
constexpr uint64_t kMaxRatio = 1000;
// Input the reader is done with goes back to the system in steps of this
// size, so a mapped file is never resident whole beside its decoded arrays.
constexpr size_t kReleaseStep = size_t(8) << 20;
// The fastest regular level: on mesh arrays of doubles it writes about 12%
// more bytes than level 3 in 60% of the time.
constexpr int kZstdLevel = 1;
// Compression threads of one write, the calling one included, and the
// largest array (raw bytes) that is packed beside others.
constexpr size_t kMaxPackThreads = 8;
constexpr size_t kMaxSharedArray = size_t{16} << 20;
enum Codec : uint8_t { kRaw = 0, kDeflate = 1, kZstd = 2 };
// Arrays of doubles at least this large (decoded) stay in a file that can be
// read again until they are used.
constexpr uint64_t kPendingMinBytes = uint64_t(1) << 20;
// The largest window a zstd stream decodes with (the library's default
// limit); a frame that needs more is decoded whole at read time.
constexpr uint64_t kMaxStreamWindow = uint64_t(1) << 27;

bool Fail(QdxStatus& status, const std::string& text) {
    status.SetCode(QdxStatus::eInvalidFile, text);
    return false;
}

// ---------------------------------------------------------------- writing

class Buffer {
public:
    void U8(uint8_t v) { Raw(&v, 1); }
    void U16(uint16_t v) { Raw(&v, 2); }
    void U32(uint32_t v) { Raw(&v, 4); }
    void I32(int32_t v) { Raw(&v, 4); }
    void U64(uint64_t v) { Raw(&v, 8); }
    void I64(int64_t v) { Raw(&v, 8); }
    void F32(float v) { Raw(&v, 4); }
    void F64(double v) { Raw(&v, 8); }
    [[gnu::noinline]] void Raw(const void* p, size_t n) {
        if (n == 0) return;
        size_t at = b.size();
        b.resize(at + n);
        std::memcpy(b.data() + at, p, n);
    }
    std::vector<uint8_t> b;
};

class StringTable {
public:
    uint32_t Id(const std::string& s) {
        auto it = ids.find(s);
        if (it != ids.end()) return it->second;
        uint32_t id = static_cast<uint32_t>(list.size());
        ids.emplace(s, id);
        list.push_back(s);
        return id;
    }
    std::unordered_map<std::string, uint32_t> ids;
    std::vector<std::string> list;
};

// Values as little-endian fields, strings as string-table ids.
class ValueEncoder : public detail::ValueWriter {
public:
    ValueEncoder(Buffer& out, StringTable& strings) : mOut(out), mStrings(strings) {}
    void Null() override {}
    void Bool(bool v) override { mOut.U8(v ? 1 : 0); }
    void Int32(int32_t v) override { mOut.I32(v); }
    void Int64(int64_t v) override { mOut.I64(v); }
    void Float(float v) override { mOut.F32(v); }
    void Double(double v) override { mOut.F64(v); }
    void Doubles(const double* v, int n) override { mOut.Raw(v, sizeof(double) * n); }
    void Int32s(const int32_t* v, int n) override { mOut.Raw(v, sizeof(int32_t) * n); }
    void String(const std::string& v) override { mOut.U32(mStrings.Id(v)); }
    void Strings(const std::vector<std::string>& v) override {
        mOut.U32(static_cast<uint32_t>(v.size()));
        for (const auto& s : v)
            mOut.U32(mStrings.Id(s));
    }

private:
    Buffer& mOut;
    StringTable& mStrings;
};

struct PreparedArray {
    uint8_t codec = kRaw;
    std::unique_ptr<uint8_t[]> packed; // compressed bytes when codec != kRaw
    size_t size = 0;                   // of packed
};

// Compresses arrays one after the other with one compression context and
// one scratch buffer: a fresh context per array costs its tables again, and
// a result kept in a buffer of the worst-case size would hold as much memory
// as the raw arrays.
class ArrayPacker {
public:
    explicit ArrayPacker(int version) : mVersion(version) {}
    ~ArrayPacker() {
        if (mDeflate) libdeflate_free_compressor(mDeflate);
        if (mZstd) ZSTD_freeCCtx(mZstd);
    }
    ArrayPacker(const ArrayPacker&) = delete;
    ArrayPacker& operator=(const ArrayPacker&) = delete;

    PreparedArray Prepare(const detail::ArrayRec& a) {
        PreparedArray p;
        size_t raw = a.Count() * detail::ArrayElementSize(a.kind);
        if (!Compresses(mVersion, raw)) return p;
        size_t n = mVersion == 2 ? Deflate(a.Data(), raw) : Zstd(a.Data(), raw);
        // Keep compression only when it pays and stays within the readers' ratio limit.
        if (n == 0 || n > raw - raw / 8 || raw > n * kMaxRatio) return p;
        // Without room for the packed copy the array is simply written raw.
        std::unique_ptr<uint8_t[]> packed(new (std::nothrow) uint8_t[n]);
        if (!packed) return p;
        std::memcpy(packed.get(), mScratch.get(), n);
        p.codec = mVersion == 2 ? kDeflate : kZstd;
        p.packed = std::move(packed);
        p.size = n;
        return p;
    }
    static bool Compresses(int version, size_t raw) { return version >= 2 && raw >= kCompressMin; }

private:
    uint8_t* Scratch(size_t n) {
        if (n > mScratchSize) {
            mScratch.reset(new (std::nothrow) uint8_t[n]);
            mScratchSize = mScratch ? n : 0;
        }
        return mScratch.get();
    }
    // Compressed size in the scratch buffer; 0 when the array stays raw.
    size_t Deflate(const void* src, size_t raw) {
        if (!mDeflate) mDeflate = libdeflate_alloc_compressor(4);
        if (!mDeflate) return 0;
        size_t bound = libdeflate_deflate_compress_bound(mDeflate, raw);
        uint8_t* dst = Scratch(bound);
        return dst ? libdeflate_deflate_compress(mDeflate, src, raw, dst, bound) : 0;
    }
    size_t Zstd(const void* src, size_t raw) {
        if (!mZstd) mZstd = ZSTD_createCCtx();
        if (!mZstd) return 0;
        size_t bound = ZSTD_compressBound(raw);
        uint8_t* dst = Scratch(bound);
        if (!dst) return 0;
        size_t n = ZSTD_compressCCtx(mZstd, dst, bound, src, raw, kZstdLevel);
        return ZSTD_isError(n) ? 0 : n;
    }

    int mVersion;
    libdeflate_compressor* mDeflate = nullptr;
    ZSTD_CCtx* mZstd = nullptr;
    std::unique_ptr<uint8_t[]> mScratch;
    size_t mScratchSize = 0;
};

// Compresses every array of a document, spread over the cores. Arrays are
// independent and each is compressed whole by one packer with the same
// settings, so the bytes do not depend on the number of threads or on
// which thread took which array. Each thread holds a scratch buffer the
// size of the largest array it packed, so arrays above kMaxSharedArray are
// packed by the calling thread alone, while the others take the rest,
// largest first, so that no thread is left with a big one at the end.
std::vector<PreparedArray> PrepareArrays(const std::vector<const detail::ArrayRec*>& arrays,
                                         int version) {
    std::vector<PreparedArray> prepared(arrays.size());
    std::vector<std::pair<size_t, size_t>> order; // raw bytes, array
    for (size_t i = 0; i < arrays.size(); ++i) {
        size_t raw = arrays[i]->Count() * detail::ArrayElementSize(arrays[i]->kind);
        if (ArrayPacker::Compresses(version, raw)) order.emplace_back(raw, i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    size_t firstShared = 0;
    while (firstShared < order.size() && order[firstShared].first > kMaxSharedArray)
        ++firstShared;
    std::atomic<size_t> next{firstShared};
    auto work = [&](ArrayPacker& packer) {
        for (size_t k = next++; k < order.size(); k = next++)
            prepared[order[k].second] = packer.Prepare(*arrays[order[k].second]);
    };
    const size_t threads = std::min({size_t{std::max(1u, std::thread::hardware_concurrency())},
                                     kMaxPackThreads, order.size() - firstShared + 1});
    std::vector<std::thread> pool;
    for (size_t t = 1; t < threads; ++t) {
        // Without another thread the calling one does the rest alone.
        try {
            pool.emplace_back([&] {
                ArrayPacker packer(version);
                work(packer);
            });
        } catch (...) {
            break;
        }
    }
    ArrayPacker packer(version);
    for (size_t k = 0; k < firstShared; ++k)
        prepared[order[k].second] = packer.Prepare(*arrays[order[k].second]);
    work(packer);
    for (std::thread& t : pool)
        t.join();
    return prepared;
}

class ChunkWriter {
public:
    ChunkWriter(const Sink& sink) : mSink(sink) {}
    bool Begin(const char tag[4], uint64_t length) {
        mCrc = 0;
        return mSink(tag, 4) && mSink(&length, 8);
    }
    bool Write(const void* p, size_t n) {
        mCrc = Crc32(p, n, mCrc);
        return mSink(p, n);
    }
    bool End() { return mSink(&mCrc, 4); }

private:
    const Sink& mSink;
    uint32_t mCrc = 0;
};
} // namespace

bool WriteBinary(const FlatDocument& doc, const Sink& sink, QdxStatus& status,
                 const Progress& progress) {
    int version = doc.version;
    if (version < kOldestVersion || version > kNewestVersion) {
        status.SetCode(QdxStatus::eInvalidFileVersion, "Unsupported file version");
        return false;
    }
    StringTable strings;
    std::vector<const detail::ArrayRec*> arrays;
    for (const FlatObject& o : doc.objects)
        for (const FlatArray& a : o.arrays)
            arrays.push_back(&a.Get());
    // Arrays still in their file are decoded here, one after the other,
    // before the compression threads see them.
    for (const detail::ArrayRec* a : arrays)
        a->Data();
    std::vector<PreparedArray> prepared = PrepareArrays(arrays, version);
    // Object records without array data; arrays follow each object's record.
    std::vector<Buffer> heads(doc.objects.size());
    std::vector<std::vector<Buffer>> arrayHeads(doc.objects.size());
    size_t arrayAt = 0;
    uint64_t objsLength = 4, totalArrayBytes = 0;
    for (size_t i = 0; i < doc.objects.size(); ++i) {
        const FlatObject& o = doc.objects[i];
        Buffer& h = heads[i];
        h.U32(strings.Id(o.className));
        h.U32(strings.Id(o.name));
        h.U32(static_cast<uint32_t>(o.properties.size()));
        for (const FlatProperty& p : o.properties) {
            h.U32(strings.Id(p.name));
            h.U32(strings.Id(p.label));
            h.U32(strings.Id(p.type));
            h.U32(p.flags);
            h.U32(static_cast<uint32_t>(p.enumItems.size()));
            for (const auto& e : p.enumItems)
                h.U32(strings.Id(e));
            ValueEncoder encoder(h, strings);
            detail::ValueTypeOf(p.value).write(p.value, encoder);
        }
        h.U32(static_cast<uint32_t>(o.arrays.size()));
        objsLength += h.b.size();
        for (const FlatArray& a : o.arrays) {
            const detail::ArrayRec& rec = a.Get();
            const PreparedArray& pa = prepared[arrayAt++];
            uint64_t raw = rec.Count() * detail::ArrayElementSize(rec.kind);
            uint64_t stored = pa.codec == kRaw ? raw : pa.size;
            Buffer ah;
            ah.U32(strings.Id(a.name));
            ah.U8(static_cast<uint8_t>(rec.kind));
            ah.U8(pa.codec);
            ah.U16(0);
            ah.U64(rec.Count());
            ah.U64(stored);
            objsLength += ah.b.size() + stored;
            totalArrayBytes += stored;
            arrayHeads[i].push_back(std::move(ah));
        }
    }
    Buffer cons;
    cons.U32(static_cast<uint32_t>(doc.connections.size()));
    for (const FlatConnection& c : doc.connections) {
        cons.U32(c.src);
        cons.U32(c.dst);
        cons.U32(c.property.empty() ? 0u : strings.Id(c.property) + 1);
    }
    Buffer strs;
    strs.U32(static_cast<uint32_t>(strings.list.size()));
    for (const auto& s : strings.list) {
        strs.U32(static_cast<uint32_t>(s.size()));
        strs.Raw(s.data(), s.size());
    }

    Buffer header;
    header.Raw(kMagic, 8);
    header.U32(static_cast<uint32_t>(version));
    header.U32(0);
    ChunkWriter w(sink);
    bool ok = sink(header.b.data(), header.b.size());
    ok = ok && w.Begin("STRS", strs.b.size()) && w.Write(strs.b.data(), strs.b.size()) && w.End();
    ok = ok && w.Begin("OBJS", objsLength);
    uint32_t count = static_cast<uint32_t>(doc.objects.size());
    ok = ok && w.Write(&count, 4);
    uint64_t written = 0;
    arrayAt = 0;
    for (size_t i = 0; ok && i < doc.objects.size(); ++i) {
        ok = w.Write(heads[i].b.data(), heads[i].b.size());
        for (size_t k = 0; ok && k < arrayHeads[i].size(); ++k) {
            ok = w.Write(arrayHeads[i][k].b.data(), arrayHeads[i][k].b.size());
            const detail::ArrayRec& rec = doc.objects[i].arrays[k].Get();
            PreparedArray& pa = prepared[arrayAt++];
            size_t n =
                pa.codec == kRaw ? rec.Count() * detail::ArrayElementSize(rec.kind) : pa.size;
            ok = ok && w.Write(pa.codec == kRaw ? rec.Data() : pa.packed.get(), n);
            pa.packed.reset(); // written: its memory goes back before the next
            written += n;
            if (progress && totalArrayBytes)
                progress(static_cast<double>(written) / totalArrayBytes);
        }
    }
    ok = ok && w.End();
    ok = ok && w.Begin("CONS", cons.b.size()) && w.Write(cons.b.data(), cons.b.size()) && w.End();
    ok = ok && w.Begin("END ", 0) && w.End();
    if (!ok) status.SetCode(QdxStatus::eFailure, "Cannot write the file");
    return ok;
}

// ---------------------------------------------------------------- reading

namespace {
class Cursor {
public:
    Cursor(const uint8_t* p, size_t n) : mP(p), mEnd(p + n) {}
    size_t Left() const { return static_cast<size_t>(mEnd - mP); }
    bool Ok() const { return mOk; }
    bool Take(void* out, size_t n) {
        if (!mOk || Left() < n) return mOk = false;
        std::memcpy(out, mP, n);
        mP += n;
        return true;
    }
    const uint8_t* Skip(size_t n) {
        if (!mOk || Left() < n) {
            mOk = false;
            return nullptr;
        }
        const uint8_t* at = mP;
        mP += n;
        return at;
    }
    template <class T> T Get() {
        T v{};
        Take(&v, sizeof v);
        return v;
    }
    const uint8_t* Pos() const { return mP; }

private:
    const uint8_t* mP;
    const uint8_t* mEnd;
    bool mOk = true;
};

// The CRC-32 of a chunk's payload, handing each step of it back once it is
// summed: the objects chunk is nearly the whole file.
uint32_t ChecksumAndRelease(const uint8_t* p, size_t n) {
    uint32_t crc = 0;
    for (size_t at = 0; at < n; at += kReleaseStep) {
        const size_t step = std::min(kReleaseStep, n - at);
        crc = Crc32(p + at, step, crc);
        if (step == kReleaseStep) ReleaseMappedBytes(p + at, step);
    }
    return crc;
}

struct Reader {
    std::vector<std::string> strings;
    int version = 0;
    // The file the bytes come from, held open, and where they start.
    std::shared_ptr<SourceFile> source;
    const uint8_t* fileStart = nullptr;
    QdxStatus* status = nullptr;
    std::string error;

    bool Str(Cursor& c, std::string& out) {
        uint32_t id = c.Get<uint32_t>();
        if (!c.Ok() || id >= strings.size()) return Bad("a string index is out of range");
        out = strings[id];
        return true;
    }
    bool Bad(const std::string& why) {
        if (error.empty()) error = why;
        return false;
    }

    bool Array(Cursor& c, FlatArray& a) {
        if (!Str(c, a.name)) return false;
        uint8_t kind = c.Get<uint8_t>(), codec = c.Get<uint8_t>();
        c.Get<uint16_t>();
        uint64_t count = c.Get<uint64_t>(), stored = c.Get<uint64_t>();
        if (!c.Ok()) return Bad("an array header is cut short");
        if (kind < 1 || kind > 4) return Bad("an array has an unknown element kind");
        a.kind = static_cast<detail::ArrayKind>(kind);
        a.owned.kind = a.kind;
        uint64_t elem = detail::ArrayElementSize(a.kind);
        if (count > (uint64_t(1) << 56) / elem) return Bad("an array is impossibly long");
        uint64_t raw = count * elem;
        if (stored > c.Left()) return Bad("array '" + a.name + "' is longer than the file");
        bool allowed = codec == kRaw || (codec == kDeflate && version == 2) ||
                       (codec == kZstd && version == 3);
        if (!allowed) return Bad("array '" + a.name + "' uses a compression its version lacks");
        if (codec == kRaw && stored != raw) return Bad("array '" + a.name + "' has a bad length");
        if (codec != kRaw && raw > stored * kMaxRatio + 1024)
            return Bad("array '" + a.name + "' claims more data than it can hold");
        const uint8_t* src = c.Skip(static_cast<size_t>(stored));
        if (!src) return Bad("array data is cut short");
        if (Leave(a, src, codec, count, stored)) return true;
        if (!error.empty()) return false;
        void* dst = a.owned.Resize(static_cast<size_t>(count));
        if (codec == kRaw) {
            if (raw) std::memcpy(dst, src, static_cast<size_t>(raw));
            return true;
        }
        if (codec == kDeflate) {
            libdeflate_decompressor* d = libdeflate_alloc_decompressor();
            if (!d) return Bad("out of memory");
            size_t actual = 0;
            libdeflate_result r = libdeflate_deflate_decompress(
                d, src, static_cast<size_t>(stored), dst, static_cast<size_t>(raw), &actual);
            libdeflate_free_decompressor(d);
            if (r != LIBDEFLATE_SUCCESS || actual != raw)
                return Bad("array '" + a.name + "' does not decompress");
            return true;
        }
        size_t n = ZSTD_decompress(dst, static_cast<size_t>(raw), src, static_cast<size_t>(stored));
        if (ZSTD_isError(n) || n != raw) return Bad("array '" + a.name + "' does not decompress");
        return true;
    }

    // Leaves a large array of doubles in the file when it can be streamed
    // from there later: raw, or one zstd frame that declares exactly the
    // decoded size and ends exactly at the stored length. False when the
    // array is to be decoded now (with error set when it is broken).
    bool Leave(FlatArray& a, const uint8_t* src, uint8_t codec, uint64_t count, uint64_t stored) {
        const uint64_t raw = count * sizeof(double);
        if (!source || a.kind != detail::ArrayKind::Double || raw < kPendingMinBytes) return false;
        if (codec == kZstd) {
            const unsigned long long declared = ZSTD_getFrameContentSize(src, stored);
            if (declared == ZSTD_CONTENTSIZE_UNKNOWN || declared == ZSTD_CONTENTSIZE_ERROR)
                return false;
            if (declared != raw) return Bad("array '" + a.name + "' does not decompress");
            ZSTD_frameHeader header{};
            if (ZSTD_getFrameHeader(&header, src, stored) != 0 ||
                header.windowSize > kMaxStreamWindow)
                return false;
            if (ZSTD_findFrameCompressedSize(src, stored) != stored) return false;
        } else if (codec != kRaw) {
            return false;
        }
        a.owned.SetPending(std::make_unique<detail::PendingArray>(
            source, static_cast<uint64_t>(src - fileStart), stored,
            codec == kZstd ? detail::PendingArray::Codec::Zstd : detail::PendingArray::Codec::Raw,
            static_cast<size_t>(count)));
        return true;
    }

    class ValueDecoder : public detail::ValueReader {
    public:
        ValueDecoder(Reader& r, Cursor& c) : mR(r), mC(c) {}
        bool Null() override { return true; }
        bool Bool(bool& v) override {
            uint8_t b = mC.Get<uint8_t>();
            if (b > 1) return mR.Bad("a boolean is neither 0 nor 1");
            v = b == 1;
            return mC.Ok();
        }
        bool Int32(int32_t& v) override { return Take(&v, sizeof v); }
        bool Int64(int64_t& v) override { return Take(&v, sizeof v); }
        bool Float(float& v) override { return Take(&v, sizeof v); }
        bool Double(double& v) override { return Take(&v, sizeof v); }
        bool Doubles(double* v, int n) override { return Take(v, sizeof(double) * n); }
        bool Int32s(int32_t* v, int n) override { return Take(v, sizeof(int32_t) * n); }
        bool String(std::string& v) override { return mR.Str(mC, v); }
        bool Strings(std::vector<std::string>& v) override {
            uint32_t n = mC.Get<uint32_t>();
            if (!mC.Ok() || n > mC.Left() / 4)
                return mR.Bad("a string list is longer than the file");
            v.resize(n);
            for (auto& s : v)
                if (!mR.Str(mC, s)) return false;
            return true;
        }

    private:
        bool Take(void* out, size_t n) { return mC.Take(out, n); }
        Reader& mR;
        Cursor& mC;
    };

    bool Objects(Cursor& c, FlatDocument& doc, const Progress& progress, const uint8_t* base,
                 size_t total) {
        uint32_t n = c.Get<uint32_t>();
        if (!c.Ok() || n > c.Left() / 16) return Bad("the object count is larger than the file");
        doc.objects.resize(n);
        const uint8_t* released = c.Pos();
        for (FlatObject& o : doc.objects) {
            if (!Str(c, o.className) || !Str(c, o.name)) return false;
            uint32_t np = c.Get<uint32_t>();
            if (!c.Ok() || np > c.Left() / 20)
                return Bad("a property count is larger than the file");
            o.properties.resize(np);
            for (FlatProperty& p : o.properties) {
                if (!Str(c, p.name) || !Str(c, p.label) || !Str(c, p.type)) return false;
                p.flags = c.Get<uint32_t>();
                uint32_t ne = c.Get<uint32_t>();
                if (!c.Ok() || ne > c.Left() / 4)
                    return Bad("an enumeration is longer than the file");
                p.enumItems.resize(ne);
                for (auto& e : p.enumItems)
                    if (!Str(c, e)) return false;
                QdxDataType t = QdxDataType::FromName(p.type.c_str());
                if (!t.Valid()) return Bad("property '" + p.name + "' has an unknown type");
                ValueDecoder decoder(*this, c);
                if (!detail::ValueTypeOf(t.GetType()).read(decoder, p.value)) return false;
            }
            uint32_t na = c.Get<uint32_t>();
            if (!c.Ok() || na > c.Left() / 24) return Bad("an array count is larger than the file");
            o.arrays.resize(na);
            for (FlatArray& a : o.arrays) {
                if (!Array(c, a)) return false;
                if (static_cast<size_t>(c.Pos() - released) >= kReleaseStep) {
                    ReleaseMappedBytes(released, static_cast<size_t>(c.Pos() - released));
                    released = c.Pos();
                }
                if (progress)
                    progress(static_cast<double>(c.Pos() - base) / static_cast<double>(total));
            }
        }
        return c.Ok() || Bad("the object table is cut short");
    }
};
} // namespace

bool IsBinary(const uint8_t* data, size_t size) {
    return size >= 8 && std::memcmp(data, kMagic, 8) == 0;
}

bool ReadBinaryVersion(const uint8_t* data, size_t size, int& version, QdxStatus& status) {
    if (!IsBinary(data, size) || size < 16) return Fail(status, "Not a binary Qdx file");
    uint32_t v;
    std::memcpy(&v, data + 8, 4);
    if (v < kOldestVersion || v > kNewestVersion) {
        status.SetCode(QdxStatus::eInvalidFileVersion,
                       "Unsupported binary file version " + std::to_string(v));
        return false;
    }
    version = static_cast<int>(v);
    return true;
}

bool ReadBinary(const uint8_t* data, size_t size, FlatDocument& doc, QdxStatus& status,
                const Progress& progress) {
    return ReadBinaryFrom(data, size, doc, status, progress, nullptr);
}

bool ReadBinaryFrom(const uint8_t* data, size_t size, FlatDocument& doc, QdxStatus& status,
                    const Progress& progress, const std::shared_ptr<SourceFile>& source) {
    doc = FlatDocument();
    Reader r;
    r.source = source;
    r.fileStart = data;
    if (!ReadBinaryVersion(data, size, r.version, status)) return false;
    doc.version = r.version;
    Cursor file(data + 16, size - 16);
    const char* expected[] = {"STRS", "OBJS", "CONS", "END "};
    int next = 0;
    while (next < 4) {
        char tag[4];
        file.Take(tag, 4);
        uint64_t length = file.Get<uint64_t>();
        if (!file.Ok()) return Fail(status, "The file is cut short");
        if (length > file.Left() || file.Left() - length < 4)
            return Fail(status, "A chunk is longer than the file");
        const uint8_t* payload = file.Skip(static_cast<size_t>(length));
        uint32_t crc = file.Get<uint32_t>();
        if (ChecksumAndRelease(payload, static_cast<size_t>(length)) != crc)
            return Fail(status,
                        std::string("Chunk '") + std::string(tag, 4) + "' fails its checksum");
        if (std::memcmp(tag, expected[next], 4) != 0) {
            for (int k = next + 1; k < 4; ++k)
                if (std::memcmp(tag, expected[k], 4) == 0)
                    return Fail(status, std::string("Chunk '") + expected[next] + "' is missing");
            continue; // unknown chunk: skipped
        }
        Cursor c(payload, static_cast<size_t>(length));
        bool ok = true;
        switch (next) {
        case 0: {
            uint32_t n = c.Get<uint32_t>();
            if (!c.Ok() || n > c.Left() / 4) return Fail(status, "The string table is cut short");
            r.strings.resize(n);
            for (auto& s : r.strings) {
                uint32_t len = c.Get<uint32_t>();
                const uint8_t* p = c.Ok() ? c.Skip(len) : nullptr;
                if (!p) return Fail(status, "The string table is cut short");
                s.assign(reinterpret_cast<const char*>(p), len);
            }
            break;
        }
        case 1:
            ok = r.Objects(c, doc, progress, data, size);
            break;
        case 2: {
            uint32_t n = c.Get<uint32_t>();
            if (!c.Ok() || n > c.Left() / 12)
                return Fail(status, "The connection table is cut short");
            doc.connections.resize(n);
            for (FlatConnection& k : doc.connections) {
                k.src = c.Get<uint32_t>();
                k.dst = c.Get<uint32_t>();
                uint32_t p = c.Get<uint32_t>();
                if (!c.Ok()) return Fail(status, "The connection table is cut short");
                if (p > 0) {
                    if (p - 1 >= r.strings.size())
                        return Fail(status, "A connection names a bad property");
                    k.property = r.strings[p - 1];
                }
            }
            break;
        }
        default:
            break;
        }
        if (!ok) return Fail(status, "Bad file: " + r.error);
        if (c.Left() != 0)
            return Fail(status, std::string("Chunk '") + expected[next] + "' has extra bytes");
        ++next;
    }
    if (file.Left() != 0) return Fail(status, "Data follows the end of the file");
    status.Clear();
    return true;
}

// ---------------------------------------------------------------- descriptor

namespace {
const char* const kSuffixes[] = {"qdx", "abc", nullptr};

// Reads a file; when it can be opened again as the same file, its large
// arrays of doubles stay there until used.
std::unique_ptr<Decoded> ReadBinaryInput(const ReadInput& input, QdxStatus& status,
                                         const Progress& progress) {
    std::shared_ptr<SourceFile> source =
        SourceFile::Open(input.path, input.device, input.inode, input.size);
    FlatDocument doc;
    if (!ReadBinaryFrom(input.data, input.size, doc, status, progress, source)) return nullptr;
    return DecodedFrom(std::move(doc));
}
} // namespace

extern const FormatDescriptor kQdxBinaryFormat;
const FormatDescriptor kQdxBinaryFormat = {
    .description = "Qdx binary (*.qdx)",
    .name = "binary",
    .suffixes = kSuffixes,
    .binary = true,
    .versions = kQdxVersions,
    .versionNumbers = kQdxVersionNumbers,
    .detect = IsBinary,
    .readVersion = ReadBinaryVersion,
    .read = ReadBinaryInput,
    .write = WriteDocument<WriteBinary>,
};

} // namespace qdxsdk::format
