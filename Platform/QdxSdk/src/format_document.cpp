// Scene <-> flat document, and the file helpers both flavours share.
#include <libdeflate.h>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

#include "format_descriptor.h"
#include "pending_array.h"
#include "qdxsdk/io.h"
#include "qdxsdk/node.h"

namespace qdxsdk::format {

uint32_t Crc32(const void* data, size_t size, uint32_t crc) {
    // libdeflate treats a null buffer as "start again"; empty arrays have one.
    return size == 0 ? crc : libdeflate_crc32(crc, data, size);
}

void Capture(QdxScene* scene, FlatDocument& doc) {
    doc.objects.clear();
    doc.connections.clear();
    std::vector<QdxObject*> table{scene};
    for (QdxObject* m : scene->SrcObjects())
        table.push_back(m);
    std::unordered_map<const QdxObject*, uint32_t> index;
    for (size_t i = 0; i < table.size(); ++i)
        index[table[i]] = static_cast<uint32_t>(i);
    doc.objects.resize(table.size());
    for (size_t i = 0; i < table.size(); ++i) {
        QdxObject* o = table[i];
        o->PrepareForWrite();
        FlatObject& f = doc.objects[i];
        f.className = o->GetClassId().GetName();
        f.name = o->GetName();
        for (const auto& p : o->Properties()) {
            FlatProperty fp;
            fp.name = p.name;
            fp.label = p.label;
            fp.type = p.type.GetName();
            fp.flags = p.flags;
            fp.enumItems = p.enumItems;
            fp.value = p.value;
            f.properties.push_back(std::move(fp));
        }
        for (const auto& a : o->Arrays()) {
            FlatArray fa;
            fa.name = a.name;
            fa.kind = a.kind;
            fa.view = &a;
            f.arrays.push_back(std::move(fa));
        }
    }
    for (size_t d = 0; d < table.size(); ++d) {
        QdxObject* dst = table[d];
        if (d != 0)
            for (QdxObject* s : dst->SrcObjects()) {
                auto it = index.find(s);
                if (it != index.end())
                    doc.connections.push_back({it->second, static_cast<uint32_t>(d), ""});
            }
        for (const auto& p : dst->Properties())
            for (QdxObject* s : p.srcObjects) {
                auto it = index.find(s);
                if (it != index.end())
                    doc.connections.push_back({it->second, static_cast<uint32_t>(d), p.name});
            }
    }
}

namespace {
bool Fail(QdxStatus& status, const std::string& text) {
    status.SetCode(QdxStatus::eInvalidFile, text);
    return false;
}

bool ApplyObject(FlatObject& f, QdxObject* o, QdxStatus& status) {
    for (FlatProperty& fp : f.properties) {
        QdxDataType type = QdxDataType::FromName(fp.type.c_str());
        if (!type.Valid() || fp.value.index() != detail::StorageIndex(type.GetType()))
            return Fail(status, "Property '" + fp.name + "' of '" + f.name + "' has a bad type");
        QdxProperty p = o->FindProperty(fp.name.c_str());
        if (!p.IsValid()) p = QdxProperty::Create(o, type, fp.name.c_str());
        if (!p.IsValid() || !p.Is(type))
            return Fail(status,
                        "Property '" + fp.name + "' of '" + f.name + "' has the wrong type");
        auto& rec = o->Properties()[static_cast<size_t>(p.GetIndex())];
        rec.label = std::move(fp.label);
        rec.flags = fp.flags;
        rec.enumItems = std::move(fp.enumItems);
        rec.value = std::move(fp.value);
    }
    for (FlatArray& fa : f.arrays) {
        detail::ArrayRec* a = o->FindArray(fa.name.c_str());
        if (!a) a = &o->AddArray(fa.name.c_str(), fa.kind);
        if (a->kind != fa.kind)
            return Fail(status, "Array '" + fa.name + "' of '" + f.name + "' has the wrong kind");
        a->TakeElements(fa.owned);
        if (detail::PendingArray* pending = a->Pending())
            pending->Attach(f.name, fa.name, o->GetQdxManager()->ArrayFaultLog());
    }
    return true;
}

// Node hierarchy must be a forest (one parent at most, no cycles) of
// bounded depth: a node's level is its number of ancestors, and no level
// may exceed kMaxDepth. Checked without recursion, in time linear in the
// node count.
constexpr int kMaxDepth = 10000;

bool CheckHierarchy(QdxScene* scene, QdxStatus& status) {
    const int count = scene->GetSrcObjectCount<QdxNode>();
    for (int i = 0; i < count; ++i) {
        QdxNode* n = scene->GetSrcObject<QdxNode>(i);
        if (n->GetDstObjectCount<QdxNode>() > 1)
            return Fail(status, std::string("Node '") + n->GetName() + "' has several parents");
    }
    std::unordered_map<const QdxNode*, int> level; // -1: on the current walk
    level.reserve(static_cast<size_t>(count));
    std::vector<QdxNode*> walk;
    for (int i = 0; i < count; ++i) {
        walk.clear();
        QdxNode* p = scene->GetSrcObject<QdxNode>(i);
        int base = -1; // level of the first node already known, above the walk
        for (; p; p = p->GetParent()) {
            auto it = level.find(p);
            if (it != level.end()) {
                if (it->second < 0)
                    return Fail(status,
                                std::string("Node '") + p->GetName() + "' is its own ancestor");
                base = it->second;
                break;
            }
            level[p] = -1;
            walk.push_back(p);
        }
        for (size_t k = walk.size(); k-- > 0;) {
            level[walk[k]] = ++base;
            if (base > kMaxDepth)
                return Fail(status, "The node hierarchy is too deep: node '" +
                                        std::string(walk[k]->GetName()) + "' is more than " +
                                        std::to_string(kMaxDepth) + " levels below its root");
        }
    }
    QdxNode* root = scene->GetRootNode();
    if (root && root->GetParent()) return Fail(status, "The root node has a parent");
    return true;
}
} // namespace

bool Build(FlatDocument& doc, QdxScene* target, QdxStatus& status) {
    if (!target) return Fail(status, "No scene to read into");
    if (doc.objects.empty() || doc.objects[0].className != "QdxScene")
        return Fail(status, "The file does not start with a scene");
    QdxManager* manager = target->GetQdxManager();
    QdxScene* temp = QdxScene::Create(manager, doc.objects[0].name.c_str());
    for (QdxObject* o : std::vector<QdxObject*>(temp->SrcObjects()))
        o->Destroy();
    std::vector<QdxObject*> table{temp};
    bool ok = true;
    for (size_t i = 1; i < doc.objects.size() && ok; ++i) {
        const FlatObject& f = doc.objects[i];
        const QdxClassId* id = QdxClassId::Find(f.className.c_str());
        // Only scene content: no second scene, no importers or exporters.
        if (!id || id->IsAbstract() || id->Is(QdxScene::ClassId) || id->Is(QdxImporter::ClassId) ||
            id->Is(QdxExporter::ClassId)) {
            ok = Fail(status, "Unknown object class '" + f.className + "'");
            break;
        }
        QdxObject* o = manager->CreateObject(f.className.c_str(), f.name.c_str());
        temp->AddMember(o);
        table.push_back(o);
    }
    for (size_t i = 0; i < doc.objects.size() && ok; ++i)
        ok = ApplyObject(doc.objects[i], table[i], status);
    for (const FlatConnection& c : doc.connections) {
        if (!ok) break;
        if (c.src >= table.size() || c.dst >= table.size() || c.src == c.dst || c.src == 0) {
            ok = Fail(status, "A connection names an object that does not exist");
            break;
        }
        QdxObject* src = table[c.src];
        QdxObject* dst = table[c.dst];
        if (c.property.empty()) {
            if (c.dst != 0) dst->ConnectSrcObject(src);
            continue;
        }
        QdxProperty p = dst->FindProperty(c.property.c_str());
        if (!p.IsValid()) {
            ok = Fail(status, "A connection names a property that does not exist: " + c.property);
            break;
        }
        p.ConnectSrcObject(src);
    }
    if (ok) ok = CheckHierarchy(temp, status);
    for (size_t i = 1; i < table.size() && ok; ++i)
        ok = table[i]->FinishRead(status);
    if (ok) ok = temp->FinishRead(status);
    if (!ok) {
        temp->ForceKill();
        return false;
    }
    target->TakeContentOf(temp);
    status.Clear();
    return true;
}

bool ReadFileBytes(const std::string& path, std::vector<uint8_t>& bytes, QdxStatus& status) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        status.SetCode(QdxStatus::eFailure, "Cannot open '" + path + "'");
        return false;
    }
    bool ok = std::fseek(f, 0, SEEK_END) == 0;
    long size = ok ? std::ftell(f) : -1;
    ok = ok && size >= 0 && std::fseek(f, 0, SEEK_SET) == 0;
    if (ok) {
        bytes.resize(static_cast<size_t>(size));
        ok = size == 0 || std::fread(bytes.data(), 1, bytes.size(), f) == bytes.size();
    }
    std::fclose(f);
    if (!ok) status.SetCode(QdxStatus::eFailure, "Cannot read '" + path + "'");
    return ok;
}

namespace {
// The open mappings, so that only their pages are ever handed back: on other
// memory the same call would discard the contents.
std::mutex gMappedLock;
std::vector<std::pair<uintptr_t, size_t>> gMapped;
} // namespace

MappedFile::~MappedFile() {
    if (!mMap) return;
    {
        std::lock_guard<std::mutex> lock(gMappedLock);
        std::erase(gMapped, std::pair{reinterpret_cast<uintptr_t>(mMap), mSize});
    }
    ::munmap(mMap, mSize);
}

void ReleaseMappedBytes(const uint8_t* data, size_t size) {
    static const uintptr_t page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
    const uintptr_t from = (reinterpret_cast<uintptr_t>(data) + page - 1) / page * page;
    const uintptr_t to = (reinterpret_cast<uintptr_t>(data) + size) / page * page;
    if (to <= from) return;
    std::lock_guard<std::mutex> lock(gMappedLock);
    for (const auto& [start, length] : gMapped)
        if (start <= from && to <= start + length) {
            // A private read-only file mapping: dropped pages read back from the file.
            ::madvise(reinterpret_cast<void*>(from), to - from, MADV_DONTNEED);
            return;
        }
}

bool MappedFile::Open(const std::string& path, QdxStatus& status) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        status.SetCode(QdxStatus::eFailure, "Cannot open '" + path + "'");
        return false;
    }
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    if (ok && st.st_size > 0) {
        void* p = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
        ok = p != MAP_FAILED;
        if (ok) {
            mMap = p;
            mData = static_cast<const uint8_t*>(p);
            mSize = static_cast<size_t>(st.st_size);
            mDevice = static_cast<uint64_t>(st.st_dev);
            mInode = static_cast<uint64_t>(st.st_ino);
            ::madvise(p, mSize, MADV_SEQUENTIAL);
            std::lock_guard<std::mutex> lock(gMappedLock);
            gMapped.emplace_back(reinterpret_cast<uintptr_t>(p), mSize);
        }
    }
    ::close(fd);
    if (!ok) status.SetCode(QdxStatus::eFailure, "Cannot read '" + path + "'");
    return ok;
}

bool WriteFileAtomically(const std::string& path, const std::function<bool(const Sink&)>& body,
                         QdxStatus& status) {
    std::string temp = path + ".tmp-" + std::to_string(::getpid());
    FILE* f = std::fopen(temp.c_str(), "wb");
    if (!f) {
        status.SetCode(QdxStatus::eFailure, "Cannot create '" + temp + "'");
        return false;
    }
    Sink sink = [f](const void* data, size_t size) {
        return size == 0 || std::fwrite(data, 1, size, f) == size;
    };
    bool ok = body(sink);
    ok = (std::fflush(f) == 0) && ok;
    ok = (std::fclose(f) == 0) && ok;
    if (ok && std::rename(temp.c_str(), path.c_str()) != 0) {
        status.SetCode(QdxStatus::eFailure, "Cannot rename the written file to '" + path + "'");
        ok = false;
    } else if (!ok && !status.Error()) {
        status.SetCode(QdxStatus::eFailure, "Cannot write '" + path + "'");
    }
    if (!ok) std::remove(temp.c_str());
    return ok;
}

// ---------------------------------------------------------------- Qdx flavours

const char* kQdxVersions[] = {"QDX300", "QDX200", "QDX100", nullptr};
const int kQdxVersionNumbers[] = {3, 2, 1};

namespace {
class DecodedDocument : public Decoded {
public:
    bool Publish(QdxScene* target, QdxStatus& status) override {
        bool ok = Build(doc, target, status);
        doc = FlatDocument();
        return ok;
    }
    FlatDocument doc;
};
} // namespace

std::unique_ptr<Decoded>
DecodeDocument(const ReadInput& input, QdxStatus& status, const Progress& progress,
               bool (*read)(const uint8_t*, size_t, FlatDocument&, QdxStatus&, const Progress&)) {
    FlatDocument doc;
    if (!read(input.data, input.size, doc, status, progress)) return nullptr;
    return DecodedFrom(std::move(doc));
}

std::unique_ptr<Decoded> DecodedFrom(FlatDocument doc) {
    auto decoded = std::make_unique<DecodedDocument>();
    decoded->doc = std::move(doc);
    return decoded;
}

bool WriteDocument(QdxScene* scene, int version, const Sink& sink, QdxStatus& status,
                   const Progress& progress,
                   bool (*write)(const FlatDocument&, const Sink&, QdxStatus&, const Progress&)) {
    FlatDocument doc;
    Capture(scene, doc);
    doc.version = version;
    return write(doc, sink, status, progress);
}

} // namespace qdxsdk::format
