// A tiny scene file type for tests: suffix "ktst", read and write.
//
// File format (text, one item per line):
//   ktst 1
//   group NAME PARENT TX TY TZ
//   mesh NAME PARENT N X Y Z ... (one polygon of N points)
//   material NAME PARENT R G B TEXTURE (on the mesh of line PARENT; TEXTURE
//                                       relative to the file, "-" for none)
// PARENT is the index of an earlier line's node, -1 for the root (the first
// line). With the handler option "upper" for "ktst", names are upper-cased.
#include <cctype>
#include <istream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <kestrel/ksFile.h>
#include <kestrel/ksLog.h>
#include <kestrel/ksString.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/SceneFileHandler.h>
#include <kestrel/osg/UberMaterial.h>

using namespace osg;

namespace {

class TestSceneFileType : public SceneFileType {
public:
    TestSceneFileType(const char* suffixArray[], UInt16 byteCount, bool override, UInt32 priority,
                      UInt32 flags)
        : SceneFileType(suffixArray, byteCount, override, priority, flags) {}

    const char* getName() const override { return "Test Scene"; }

    NodePtr read(std::istream& is, const char* fileName) const override {
        const char* opts = SceneFileHandler::the().getOptions("ktst");
        bool upper = opts && ksString::getBoolOption(opts, "upper");
        std::string magic;
        int version = 0;
        if (!(is >> magic >> version) || magic != "ktst" || version != 1) {
            ksLog::error("%s is not a test scene", fileName);
            return NodePtr();
        }
        std::vector<NodePtr> nodes;
        std::string kind, name;
        int parent = 0;
        while (is >> kind >> name >> parent) {
            if (kind == "material") {
                if (parent < 0 || static_cast<std::size_t>(parent) >= nodes.size())
                    return NodePtr();
                auto geo = GeometryPtr::dcast(nodes[std::size_t(parent)]->getCore());
                Color3f c;
                std::string texture;
                if (!geo || !(is >> c[0] >> c[1] >> c[2] >> texture)) return NodePtr();
                auto mat = UPlasticMaterial::create();
                mat->setName(name);
                mat->setDiffuseColor(c);
                if (texture != "-") {
                    auto img = Image::create();
                    if (img->read(ksFile::join(ksFile::getDirName(fileName), texture))) {
                        mat->setColorMap(img);
                        mat->setUseColorTexture(true);
                    }
                }
                geo->setMaterial(mat);
                continue;
            }
            if (upper)
                for (char& c : name)
                    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            NodePtr node = Node::create();
            node->setName(name);
            if (kind == "group") {
                Vec3f t;
                is >> t[0] >> t[1] >> t[2];
                auto core = Transform3D::create();
                core->setTranslation(t);
                node->setCore(core);
            } else if (kind == "mesh") {
                unsigned n = 0;
                is >> n;
                if (n > 1000) return NodePtr();
                auto geo = Geometry::create();
                auto pos = GeoPositions3f::create();
                auto idx = GeoIndicesUI32::create();
                for (unsigned i = 0; i < n; ++i) {
                    Pnt3f p;
                    is >> p[0] >> p[1] >> p[2];
                    pos->push_back(p);
                    idx->push_back(i);
                }
                auto types = GeoPTypesUI8::create();
                types->push_back(PrimPolygon);
                auto lengths = GeoPLengthsUI32::create();
                lengths->push_back(n);
                geo->setTypes(types);
                geo->setLengths(lengths);
                geo->setPositions(pos);
                geo->setIndices(idx);
                geo->setIndexMapping({MapPosition});
                node->setCore(geo);
            } else {
                return NodePtr();
            }
            if (!is) return NodePtr();
            if (parent >= 0 && static_cast<std::size_t>(parent) < nodes.size())
                nodes[std::size_t(parent)]->addChild(node);
            else if (!nodes.empty())
                return NodePtr();
            nodes.push_back(node);
            SceneFileHandler::the().updateReadProgress(50);
        }
        SceneFileHandler::the().updateReadProgress(100);
        return nodes.empty() ? NodePtr() : nodes.front();
    }

    bool write(const NodePtr& node, std::ostream& os, const char*) const override {
        os << "ktst 1\n";
        int next = 0;
        writeNode(node, -1, next, os);
        SceneFileHandler::the().updateWriteProgress(100);
        return bool(os);
    }

private:
    static void writeNode(const NodePtr& node, int parent, int& next, std::ostream& os) {
        int me = next++;
        std::string name = node->getName().empty() ? "node" : node->getName();
        if (auto g = GeometryPtr::dcast(node->getCore())) {
            auto pos = GeoPositions3fPtr::dcast(g->getPositions());
            std::size_t n = pos ? pos->size() : 0;
            os << "mesh " << name << " " << parent << " " << n;
            for (std::size_t i = 0; i < n; ++i) {
                const Pnt3f& p = pos->getValue(UInt32(i));
                os << " " << p[0] << " " << p[1] << " " << p[2];
            }
            os << "\n";
        } else {
            Vec3f t;
            if (auto t3 = Transform3DPtr::dcast(node->getCore())) t = t3->getTranslation();
            os << "group " << name << " " << parent << " " << t[0] << " " << t[1] << " " << t[2]
               << "\n";
        }
        for (const auto& c : node->getChildren())
            writeNode(c, me, next, os);
    }
};

const char* suffixes[] = {"ktst"};
TestSceneFileType theType(suffixes, sizeof(suffixes), false, 0,
                          SceneFileType::ReadSupported | SceneFileType::WriteSupported);

} // namespace
