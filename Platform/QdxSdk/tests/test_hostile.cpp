// Files that parse but describe impossible scenes are rejected as a whole,
// with a message naming the problem, and leave the target scene untouched.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>

#include "scene_builder.h"

using namespace qdxsdk;
using namespace qdxtest;
using json = nlohmann::ordered_json;

namespace {
class Hostile : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        dir = MakeTempDir("hostile");
        QdxScene* s = QdxScene::Create(manager, "valid");
        QdxNode* a = QdxNode::Create(s, "a");
        QdxNode* b = QdxNode::Create(s, "b");
        s->GetRootNode()->AddChild(a);
        a->AddChild(b);
        QdxMesh* mesh = QdxMesh::Create(s, "mesh");
        mesh->InitControlPoints(3);
        mesh->BeginPolygon();
        for (int i = 0; i < 3; ++i)
            mesh->AddPolygon(i);
        mesh->EndPolygon();
        mesh->CreateElementNormal();
        b->SetNodeAttribute(mesh);
        QdxAnimCurve* c = QdxAnimCurve::Create(s, "curve");
        c->KeyAdd(QdxTime(0));
        c->KeyAdd(QdxTime(100));
        std::string path = dir + "/valid.qdx";
        EXPECT_TRUE(ExportScene(s, path, 1, 1)); // no checksums: edits reach the checks
        valid = json::parse(ReadAll(path));
        s->ForceKill();
    }
    void TearDown() override {
        manager->Destroy();
        std::filesystem::remove_all(dir);
    }
    int Find(const std::string& cls) const {
        const json& objs = valid["objects"];
        for (size_t i = 0; i < objs.size(); ++i)
            if (objs[i]["class"] == cls) return static_cast<int>(i);
        return -1;
    }
    json& Array(json& doc, const std::string& cls, const std::string& name) {
        for (json& a : doc["objects"][static_cast<size_t>(Find(cls))]["arrays"])
            if (a["name"] == name) return a;
        throw std::runtime_error("no array " + name);
    }
    // Applies edit to the valid document, reads it, expects failure with text.
    void ExpectRejected(const std::function<void(json&)>& edit, const std::string& text) {
        json doc = valid;
        edit(doc);
        std::string path = dir + "/bad.qdx";
        WriteAll(path, doc.dump());
        QdxScene* scene = QdxScene::Create(manager, "target");
        QdxNode* keep = QdxNode::Create(scene, "keep");
        scene->GetRootNode()->AddChild(keep);
        std::string error;
        EXPECT_FALSE(ImportScene(scene, path, &error)) << "accepted: " << text;
        EXPECT_NE(error.find(text), std::string::npos) << "message was: " << error;
        EXPECT_EQ(scene->GetRootNode()->GetChild(0), keep);
        EXPECT_STREQ(scene->GetName(), "target");
        scene->ForceKill();
    }
    QdxManager* manager = nullptr;
    std::string dir;
    json valid;
};
} // namespace

TEST_F(Hostile, TheUnmodifiedFileReads) {
    std::string path = dir + "/ok.qdx";
    WriteAll(path, valid.dump());
    QdxScene* s = QdxScene::Create(manager, "");
    EXPECT_TRUE(ImportScene(s, path));
}

TEST_F(Hostile, StructuralLies) {
    ExpectRejected([&](json& d) { d["objects"][1]["class"] = "QdxWarpDrive"; },
                   "Unknown object class");
    ExpectRejected([&](json& d) { d["objects"][2]["class"] = "QdxScene"; }, "Unknown object class");
    ExpectRejected([&](json& d) { d["objects"][2]["class"] = "QdxImporter"; },
                   "Unknown object class");
    ExpectRejected([&](json& d) { d["objects"][0]["class"] = "QdxNode"; },
                   "does not start with a scene");
    ExpectRejected([&](json& d) { d["connections"].push_back({1, 999}); }, "does not exist");
    ExpectRejected([&](json& d) { d["connections"].push_back({0, 1}); }, "does not exist");
    ExpectRejected(
        [&](json& d) {
            d["connections"].push_back({1, 2, "NoSuchProperty"});
        },
        "property that does not exist");
    ExpectRejected([&](json& d) { d["version"] = 9; }, "version");
    ExpectRejected([&](json& d) { d.erase("connections"); }, "connections");
}

TEST_F(Hostile, HierarchyMustBeATree) {
    int root = Find("QdxNode"), a = -1, b = -1;
    for (size_t i = 0; i < valid["objects"].size(); ++i) {
        if (valid["objects"][i]["name"] == "a") a = static_cast<int>(i);
        if (valid["objects"][i]["name"] == "b") b = static_cast<int>(i);
    }
    ASSERT_GT(a, 0);
    ASSERT_GT(b, 0);
    // a hangs under b instead of the root: a and b are each other's parents.
    ExpectRejected(
        [&](json& d) {
            for (json& c : d["connections"])
                if (c[0] == a && c[1] == root) c[1] = b;
        },
        "own ancestor");
    ExpectRejected([&](json& d) { d["connections"].push_back({b, root}); }, "several parents");
}

TEST_F(Hostile, ValuesMustMatchTheirTypes) {
    int node = Find("QdxNode");
    ExpectRejected(
        [&](json& d) {
            for (json& p : d["objects"][static_cast<size_t>(node)]["properties"])
                if (p["name"] == "Lcl Translation") p["type"] = "Int", p["value"] = 1;
        },
        "wrong type");
    ExpectRejected(
        [&](json& d) {
            for (json& p : d["objects"][static_cast<size_t>(node)]["properties"])
                if (p["name"] == "Lcl Translation") p["value"] = {1, 2};
        },
        "expected 3 numbers");
    ExpectRejected(
        [&](json& d) {
            for (json& p : d["objects"][static_cast<size_t>(node)]["properties"])
                if (p["name"] == "Visibility") p["type"] = "Quaternion";
        },
        "unknown type");
    ExpectRejected(
        [&](json& d) {
            for (json& p : d["objects"][static_cast<size_t>(node)]["properties"])
                if (p["name"] == "InheritType") p["value"] = 4294967296LL;
        },
        "out of range");
}

TEST_F(Hostile, ArraysMustBeConsistent) {
    ExpectRejected([&](json& d) { Array(d, "QdxMesh", "PolygonStart")["data"] = {2}; },
                   "bad polygon starts");
    ExpectRejected(
        [&](json& d) {
            json& t = Array(d, "QdxAnimCurve", "KeyTime");
            t["data"] = {100, 0};
        },
        "inconsistent keys");
    ExpectRejected(
        [&](json& d) {
            json& t = Array(d, "QdxAnimCurve", "KeyTime");
            t["count"] = 3;
        },
        "wrong count");
    ExpectRejected([&](json& d) { Array(d, "QdxMesh", "ControlPoints")["kind"] = "f128"; },
                   "unknown kind");
    ExpectRejected([&](json& d) { Array(d, "QdxMesh", "ControlPoints")["b64"] = "AAAA"; },
                   "base64 before version 3");
    int element = Find("QdxLayerElementNormal");
    ExpectRejected(
        [&](json& d) {
            for (json& p : d["objects"][static_cast<size_t>(element)]["properties"])
                if (p["name"] == "LayerSlot") p["value"] = 77;
        },
        "bad layer slot");
}

TEST_F(Hostile, CurveKeysMustIncrease) {
    // Rewrite the key times and a matching checksum: only the order is wrong.
    QdxScene* s = QdxScene::Create(manager, "");
    QdxAnimCurve* c = QdxAnimCurve::Create(s, "curve");
    c->KeyAdd(QdxTime(0));
    c->KeyAdd(QdxTime(100));
    c->KeySetTime(1, QdxTime(-5));
    std::string path = dir + "/unordered.qdx";
    ASSERT_TRUE(ExportScene(s, path, 0, 1));
    QdxScene* target = QdxScene::Create(manager, "");
    std::string error;
    EXPECT_FALSE(ImportScene(target, path, &error));
    EXPECT_NE(error.find("inconsistent keys"), std::string::npos) << error;
}

TEST_F(Hostile, HierarchiesDeeperThanTheLimitAreRefused) {
    // 10,000 levels below the root read (and every walk over them stays off
    // the call stack); one more is refused, naming the node.
    for (int levels : {10000, 10001}) {
        QdxScene* s = QdxScene::Create(manager, "");
        QdxNode* parent = s->GetRootNode();
        for (int i = 0; i < levels; ++i) {
            const std::string name = std::string("n").append(std::to_string(i));
            QdxNode* n = QdxNode::Create(s, name.c_str());
            parent->AddChild(n);
            parent = n;
        }
        std::string path = dir + "/deep.qdx";
        ASSERT_TRUE(ExportScene(s, path, 0, 3));
        QdxScene* target = QdxScene::Create(manager, "");
        std::string error;
        ASSERT_EQ(ImportScene(target, path, &error), levels == 10000) << error;
        if (levels > 10000) {
            EXPECT_NE(error.find("too deep: node 'n10000'"), std::string::npos) << error;
            continue;
        }
        QdxNode* root = target->GetRootNode();
        EXPECT_EQ(root->GetChildCount(true), levels);
        EXPECT_EQ(root->FindChild("n9999", true)->GetParent(), root->FindChild("n9998", true));
        EXPECT_EQ(root->FindChild("n5", false), nullptr);
        QdxNode* bottom = root->FindChild("n9999", true);
        bottom->LclTranslation.Set(QdxDouble3(0, 0, 1));
        root->FindChild("n0", true)->LclTranslation.Set(QdxDouble3(2, 0, 0));
        const QdxVector4 t = bottom->EvaluateGlobalTransform().GetT();
        EXPECT_EQ(t[0], 2.0);
        EXPECT_EQ(t[2], 1.0);
        root->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot, 30.0);
    }
}

TEST_F(Hostile, LayerSlotsHoldOnlyTheirOwnElementClass) {
    QdxScene* s = QdxScene::Create(manager, "");
    QdxMesh* mesh = QdxMesh::Create(s, "mesh");
    QdxNode* node = QdxNode::Create(s, "n");
    s->GetRootNode()->AddChild(node);
    node->SetNodeAttribute(mesh);
    mesh->CreateLayer();
    QdxLayer* layer = mesh->GetLayer(0);
    QdxLayerElementUV* uv = QdxLayerElementUV::Create(s, "uv");
    QdxLayerElementNormal* normal = QdxLayerElementNormal::Create(s, "normal");
    // Made through the API: a mismatching class is refused.
    EXPECT_FALSE(layer->SetLayerElementOfType(uv, QdxLayerElement::eNormal));
    EXPECT_FALSE(layer->SetLayerElementOfType(normal, QdxLayerElement::eBinormal));
    EXPECT_TRUE(layer->SetLayerElementOfType(uv, QdxLayerElement::eTextureBump));
    EXPECT_EQ(layer->GetNormals(), nullptr);
    EXPECT_EQ(layer->GetUVs(QdxLayerElement::eTextureBump), uv);

    // Written by someone else: a UV set claiming the normal slot, or each of
    // the other typed slots, is a clear read error.
    for (int slot : {QdxLayerElement::eNormal, QdxLayerElement::eMaterial,
                     QdxLayerElement::eVertexColor, QdxLayerElement::eTangent}) {
        uv->LayerIndex.Set(0);
        uv->LayerSlot.Set(slot);
        std::string path = dir + "/slot.qdx";
        ASSERT_TRUE(ExportScene(s, path, 0, 3));
        QdxScene* target = QdxScene::Create(manager, "");
        std::string error;
        EXPECT_FALSE(ImportScene(target, path, &error));
        const std::string expected =
            std::string("'uv' of class QdxLayerElementUV cannot fill layer slot ")
                .append(std::to_string(slot));
        EXPECT_NE(error.find(expected), std::string::npos) << error;
    }
}
