// Structure-aware fuzzing of the whole import road: the fuzzer's bytes drive
// the SDK's own API to build a scene that is well formed on disk but hostile
// in content (objects of any class in any slot and connection, indices and
// counts out of range, NaN and infinities, duplicate and empty names, deep
// and wide trees, large arrays). The scene is written in a chosen flavour
// and version, imported through the host's scene-file handler with the Qdx
// plug-in loaded (as `kestrel import` does) and, when that gives a scene,
// exported again through the handler.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include <kestrel/osg/SceneFileHandler.h>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {

// Reads numbers from the fuzzer's bytes; zeros once they run out.
class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : mData(data), mSize(size) {}
    bool Empty() const { return mAt >= mSize; }
    uint8_t U8() { return mAt < mSize ? mData[mAt++] : 0; }
    uint32_t U32() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i)
            v = v << 8 | U8();
        return v;
    }
    // A number below n (n > 0).
    uint32_t Below(uint32_t n) { return n ? (n <= 256 ? U8() % n : U32() % n) : 0; }
    bool Bit() { return U8() & 1; }
    int Int() {
        static const int kSpecial[] = {0,
                                       1,
                                       -1,
                                       2,
                                       3,
                                       4,
                                       5,
                                       7,
                                       30,
                                       255,
                                       65536,
                                       1 << 30,
                                       -2,
                                       29,
                                       14,
                                       std::numeric_limits<int>::min(),
                                       std::numeric_limits<int>::max()};
        uint8_t k = U8();
        if (k < 200) return kSpecial[k % (sizeof kSpecial / sizeof kSpecial[0])];
        return static_cast<int>(U32());
    }
    double Double() {
        static const double kSpecial[] = {0.0,
                                          -0.0,
                                          1.0,
                                          -1.0,
                                          0.5,
                                          90.0,
                                          1e-300,
                                          1e300,
                                          -1e300,
                                          std::numeric_limits<double>::quiet_NaN(),
                                          std::numeric_limits<double>::infinity(),
                                          -std::numeric_limits<double>::infinity(),
                                          std::numeric_limits<double>::denorm_min(),
                                          std::numeric_limits<double>::max(),
                                          1e9,
                                          4.5e18};
        uint8_t k = U8();
        if (k < 200) return kSpecial[k % (sizeof kSpecial / sizeof kSpecial[0])];
        uint64_t bits = static_cast<uint64_t>(U32()) << 32 | U32();
        double d;
        std::memcpy(&d, &bits, sizeof d);
        return d;
    }
    std::string Name() {
        static const char* kNames[] = {"",         "a",    "a",       "RootNode",
                                       "node",     "mesh", "map1",    "Material UV Set",
                                       "\xff\xfe", "x y",  "Textures"};
        return kNames[U8() % (sizeof kNames / sizeof kNames[0])];
    }

private:
    const uint8_t* mData;
    size_t mSize;
    size_t mAt = 0;
};

// Classes a scene may hold: every concrete registered class except scenes,
// importers and exporters.
const std::vector<const QdxClassId*>& ContentClasses() {
    static const std::vector<const QdxClassId*> classes = [] {
        std::vector<const QdxClassId*> out;
        for (const std::string& name : QdxManager::GetRegisteredClassNames()) {
            const QdxClassId* id = QdxClassId::Find(name.c_str());
            if (!id || id->IsAbstract() || id->Is(QdxScene::ClassId) ||
                id->Is(QdxImporter::ClassId) || id->Is(QdxExporter::ClassId))
                continue;
            out.push_back(id);
        }
        return out;
    }();
    return classes;
}

void SetValue(detail::Value& value, Bytes& in) {
    std::visit(
        [&in](auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>)
                v = in.Bit();
            else if constexpr (std::is_same_v<T, int>)
                v = in.Int();
            else if constexpr (std::is_same_v<T, long long>)
                // Huge values on purpose: the product wraps (unsigned, so
                // the harness itself has no overflow).
                v = static_cast<long long>(static_cast<unsigned long long>(in.Int()) *
                                           (in.Bit() ? 1ULL : 4611686018427387ULL));
            else if constexpr (std::is_same_v<T, float>)
                v = static_cast<float>(in.Double());
            else if constexpr (std::is_same_v<T, double>)
                v = in.Double();
            else if constexpr (std::is_same_v<T, QdxDouble2> || std::is_same_v<T, QdxDouble3> ||
                               std::is_same_v<T, QdxDouble4>)
                for (int i = 0; i < static_cast<int>(sizeof(T) / sizeof(double)); ++i)
                    v[i] = in.Double();
            else if constexpr (std::is_same_v<T, std::string>)
                v = in.Name();
        },
        value);
}

// Fills an array with count elements drawn from the bytes (repeating the
// last ones once the bytes run out).
void FillArray(detail::ArrayRec& a, size_t count, Bytes& in) {
    a.Resize(count);
    switch (a.kind) {
    case detail::ArrayKind::Int32:
        for (auto& v : a.Elements<int32_t>())
            v = in.Empty() ? static_cast<int32_t>(&v - a.Elements<int32_t>().data()) % 7 : in.Int();
        break;
    case detail::ArrayKind::Int64:
        for (auto& v : a.Elements<int64_t>())
            v = in.Int();
        break;
    case detail::ArrayKind::Double:
        for (auto& v : a.Elements<double>())
            v = in.Empty() ? 0.25 : in.Double();
        break;
    case detail::ArrayKind::UInt8:
        for (auto& v : a.Elements<uint8_t>())
            v = in.U8();
        break;
    }
}

// Builds a hostile scene from the bytes.
void Build(QdxScene* scene, Bytes& in) {
    std::vector<QdxObject*> objects;
    std::vector<QdxNode*> nodes{scene->GetRootNode()};
    const auto& classes = ContentClasses();
    const int steps = 1 + static_cast<int>(in.Below(64));
    for (int step = 0; step < steps && !in.Empty(); ++step) {
        switch (in.Below(10)) {
        case 0:
        case 1: { // an object of any class, often a node attribute of a node
            const QdxClassId* id = classes[in.Below(static_cast<uint32_t>(classes.size()))];
            QdxObject* o = scene->GetQdxManager()->CreateObject(id->GetName(), in.Name().c_str());
            if (!o) break;
            scene->AddMember(o);
            objects.push_back(o);
            if (auto* a = QdxCast<QdxNodeAttribute>(o))
                nodes[in.Below(static_cast<uint32_t>(nodes.size()))]->SetNodeAttribute(a);
            if (auto* n = QdxCast<QdxNode>(o)) {
                nodes[in.Below(static_cast<uint32_t>(nodes.size()))]->AddChild(n);
                nodes.push_back(n);
            }
            break;
        }
        case 2: { // a deep chain or a wide fan of nodes
            const bool deep = in.Bit();
            const int count = deep ? static_cast<int>(in.Below(4) * 1000 + in.Below(256))
                                   : static_cast<int>(in.Below(2048));
            QdxNode* parent = nodes[in.Below(static_cast<uint32_t>(nodes.size()))];
            for (int i = 0; i < count; ++i) {
                QdxNode* n = QdxNode::Create(scene, "n");
                parent->AddChild(n);
                if (deep) parent = n;
            }
            nodes.push_back(parent);
            break;
        }
        case 3:
        case 4: { // a connection between any two objects, or to a property
            if (objects.empty()) break;
            QdxObject* src = objects[in.Below(static_cast<uint32_t>(objects.size()))];
            QdxObject* dst =
                in.Bit()
                    ? static_cast<QdxObject*>(nodes[in.Below(static_cast<uint32_t>(nodes.size()))])
                    : objects[in.Below(static_cast<uint32_t>(objects.size()))];
            if (src == dst) break;
            if (in.Bit() && dst->GetPropertyCount() > 0) {
                QdxProperty p = dst->GetPropertyAt(
                    static_cast<int>(in.Below(static_cast<uint32_t>(dst->GetPropertyCount()))));
                p.ConnectSrcObject(src);
            } else {
                dst->ConnectSrcObject(src);
            }
            break;
        }
        case 5: { // a layer element claiming any layer and slot
            if (objects.empty()) break;
            auto* e =
                QdxCast<QdxLayerElement>(objects[in.Below(static_cast<uint32_t>(objects.size()))]);
            if (!e) break;
            e->LayerIndex.Set(in.Bit() ? static_cast<int>(in.Below(4)) : in.Int());
            e->LayerSlot.Set(in.Bit() ? static_cast<int>(in.Below(31)) : in.Int());
            break;
        }
        case 6:
        case 7: { // property values: out-of-range enums and indices, NaN, infinities
            if (objects.empty()) break;
            QdxObject* o = objects[in.Below(static_cast<uint32_t>(objects.size()))];
            for (int k = static_cast<int>(in.Below(8)); k >= 0 && !o->Properties().empty(); --k)
                SetValue(
                    o->Properties()[in.Below(static_cast<uint32_t>(o->Properties().size()))].value,
                    in);
            break;
        }
        case 8: { // array contents and lengths that disagree with each other
            if (objects.empty()) break;
            QdxObject* o = objects[in.Below(static_cast<uint32_t>(objects.size()))];
            if (o->Arrays().empty()) break;
            detail::ArrayRec& a = o->Arrays()[in.Below(static_cast<uint32_t>(o->Arrays().size()))];
            const size_t count = in.Bit() ? in.Below(64) : (size_t(1) << in.Below(21));
            FillArray(a, count, in);
            break;
        }
        default: // names, duplicates and empties included
            if (!objects.empty())
                objects[in.Below(static_cast<uint32_t>(objects.size()))]->SetName(
                    in.Name().c_str());
            break;
        }
    }
}

std::string gDir;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The plug-in registers its scene file types with the handler as it
    // loads; its diagnostics go to standard output, which is silenced.
    if (!::dlopen(KSQDX_PLUGIN_PATH, RTLD_NOW | RTLD_GLOBAL)) {
        std::fprintf(stderr, "fuzz_qdx_scene: cannot load %s: %s\n", KSQDX_PLUGIN_PATH,
                     ::dlerror());
        std::abort();
    }
    char dir[] = "/tmp/fuzz-qdx-scene-XXXXXX";
    if (!::mkdtemp(dir)) std::abort();
    gDir = dir;
    const int null = ::open("/dev/null", O_WRONLY);
    if (null >= 0) ::dup2(null, STDOUT_FILENO);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in(data, size);
    const int format = static_cast<int>(in.Below(2));
    const int version = 1 + static_cast<int>(in.Below(3));
    const std::string path = gDir + (in.Bit() ? "/scene.abc" : "/scene.qdx");
    const std::string back = gDir + "/back.qdx";
    {
        QdxManager* manager = QdxManager::Create();
        QdxScene* scene = QdxScene::Create(manager, "fuzz");
        Build(scene, in);
        QdxExporter* exporter = QdxExporter::Create(manager, "");
        const std::string versionName = "QDX" + std::to_string(version) + "00";
        const bool ok = exporter->Initialize(path.c_str(), format) &&
                        exporter->SetFileExportVersion(versionName.c_str()) &&
                        exporter->Export(scene);
        manager->Destroy();
        if (!ok) return 0;
    }
    osg::NodePtr root = osg::SceneFileHandler::the().read(path.c_str());
    if (root) osg::SceneFileHandler::the().write(root, back.c_str());
    std::remove(path.c_str());
    std::remove(back.c_str());
    return 0;
}
