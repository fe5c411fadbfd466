// Polygon meshes.
#include <algorithm>

#include "impl.h"
#include "qdxsdk/mesh.h"

namespace qdxsdk {

using detail::ArrayKind;

QDX_IMPLEMENT_OBJECT(QdxMesh, QdxGeometry, "QdxMesh")
QdxMesh::QdxMesh(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    mVerticesArray = AddOwnArray("PolygonVertexIndex", ArrayKind::Int32);
    mStartsArray = AddOwnArray("PolygonStart", ArrayKind::Int32);
}

#define QDX_MESH_ARRAYS                                                                            \
    auto& verts = const_cast<QdxMesh*>(this)->ArrayOf<int32_t>(mVerticesArray);                    \
    auto& starts = const_cast<QdxMesh*>(this)->ArrayOf<int32_t>(mStartsArray);                     \
    (void)verts;                                                                                   \
    (void)starts;

int QdxMesh::GetPolygonCount() const {
    QDX_MESH_ARRAYS
    return static_cast<int>(starts.size());
}

int QdxMesh::GetPolygonSize(int p) const {
    QDX_MESH_ARRAYS
    if (p < 0 || static_cast<size_t>(p) >= starts.size()) return -1;
    size_t end = static_cast<size_t>(p) + 1 < starts.size()
                     ? static_cast<size_t>(starts[static_cast<size_t>(p) + 1])
                     : verts.size();
    return static_cast<int>(end) - starts[static_cast<size_t>(p)];
}

int QdxMesh::GetPolygonVertex(int p, int c) const {
    QDX_MESH_ARRAYS
    int size = GetPolygonSize(p);
    if (size < 0 || c < 0 || c >= size) return -1;
    return verts[static_cast<size_t>(starts[static_cast<size_t>(p)] + c)];
}

int QdxMesh::GetPolygonVertexIndex(int p) const {
    QDX_MESH_ARRAYS
    if (p < 0 || static_cast<size_t>(p) >= starts.size()) return -1;
    return starts[static_cast<size_t>(p)];
}

int QdxMesh::GetPolygonVertexCount() const {
    QDX_MESH_ARRAYS
    return static_cast<int>(verts.size());
}

const int* QdxMesh::GetPolygonStarts() const {
    return ArrayOf<int32_t>(mStartsArray).data();
}

int* QdxMesh::GetPolygonVertices() {
    return ArrayOf<int32_t>(mVerticesArray).data();
}
const int* QdxMesh::GetPolygonVertices() const {
    return ArrayOf<int32_t>(mVerticesArray).data();
}

void QdxMesh::ReservePolygonCount(int count) {
    ArrayOf<int32_t>(mStartsArray).reserve(static_cast<size_t>(std::max(count, 0)));
}
void QdxMesh::ReservePolygonVertexCount(int count) {
    ArrayOf<int32_t>(mVerticesArray).reserve(static_cast<size_t>(std::max(count, 0)));
}

void QdxMesh::BeginPolygon(int material, int, int, bool) {
    QDX_MESH_ARRAYS
    starts.push_back(static_cast<int32_t>(verts.size()));
    mInPolygon = true;
    if (material >= 0)
        if (QdxLayerElementMaterial* e = GetElementMaterial())
            if (e->GetMappingMode() == QdxLayerElement::eByPolygon)
                e->GetIndexArray().Add(material);
}

void QdxMesh::AddPolygon(int index, int textureUVIndex) {
    QDX_MESH_ARRAYS
    if (!mInPolygon) return;
    verts.push_back(index);
    if (textureUVIndex >= 0 && GetLayerCount() > 0)
        if (QdxLayerElementUV* uv = GetLayer(0)->GetUVs())
            if (uv->GetMappingMode() == QdxLayerElement::eByPolygonVertex &&
                uv->GetReferenceMode() != QdxLayerElement::eDirect)
                uv->GetIndexArray().Add(textureUVIndex);
}

void QdxMesh::EndPolygon() {
    mInPolygon = false;
}

bool QdxMesh::FinishRead(QdxStatus& status) {
    if (!QdxGeometry::FinishRead(status)) return false;
    QDX_MESH_ARRAYS
    int32_t prev = 0;
    for (size_t i = 0; i < starts.size(); ++i) {
        if (starts[i] < prev || static_cast<size_t>(starts[i]) > verts.size() ||
            (i == 0 && starts[i] != 0)) {
            status.SetCode(QdxStatus::eInvalidFile,
                           std::string("Mesh '") + GetName() + "' has bad polygon starts");
            return false;
        }
        prev = starts[i];
    }
    if (starts.empty() && !verts.empty()) {
        status.SetCode(QdxStatus::eInvalidFile,
                       std::string("Mesh '") + GetName() + "' has corners but no polygons");
        return false;
    }
    return true;
}

void QdxMesh::AddPolygons(const int* sizes, int count, const int* vertices) {
    QDX_MESH_ARRAYS
    size_t total = 0;
    starts.reserve(starts.size() + static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        starts.push_back(static_cast<int32_t>(verts.size() + total));
        total += static_cast<size_t>(sizes[i]);
    }
    verts.insert(verts.end(), vertices, vertices + total);
}

bool QdxMesh::GetCorner(int p, int c, int& polygonVertex, int& controlPoint) const {
    QDX_MESH_ARRAYS
    polygonVertex = controlPoint = -1;
    int size = GetPolygonSize(p);
    if (size < 0 || c < 0 || c >= size) return false;
    size_t at = static_cast<size_t>(starts[static_cast<size_t>(p)]) + static_cast<size_t>(c);
    if (at >= verts.size()) return false;
    polygonVertex = static_cast<int>(at);
    controlPoint = verts[at];
    return true;
}

bool QdxMesh::GetPolygonVertexNormal(int p, int c, QdxVector4& normal) const {
    normal = QdxVector4();
    const QdxLayerElementNormal* e = GetElementNormal();
    return e && e->GetPolygonVertexValue(*this, p, c, normal);
}

bool QdxMesh::GetPolygonVertexUV(int p, int c, const char* name, QdxVector2& uv,
                                 bool& unmapped) const {
    uv = QdxVector2();
    unmapped = true;
    const QdxLayerElementUV* e = GetElementUV(name);
    if (!e || !e->MapsPolygonVertices()) return false;
    unmapped = !e->GetPolygonVertexValue(*this, p, c, uv);
    return true;
}

bool QdxMesh::GetPolygonVertexColor(int p, int c, QdxColor& color) const {
    color = QdxColor();
    const QdxLayerElementVertexColor* e = GetElementVertexColor();
    return e && e->GetPolygonVertexValue(*this, p, c, color);
}

bool QdxMesh::GetTextureUV(QdxLayerElementArrayTemplate<QdxVector2>** array,
                           QdxLayerElement::EType type) {
    if (!array) return false;
    *array = nullptr;
    QdxLayerElementUV* e = GetLayerCount() > 0 ? GetLayer(0)->GetUVs(type) : nullptr;
    if (!e) return false;
    *array = &e->GetDirectArray();
    return true;
}

int QdxMesh::GetTextureUVIndex(int p, int c, QdxLayerElement::EType type) const {
    QdxLayerElementUV* e = GetLayerCount() > 0 ? GetLayer(0)->GetUVs(type) : nullptr;
    int polygonVertex, controlPoint;
    if (!e || !GetCorner(p, c, polygonVertex, controlPoint)) return -1;
    return e->GetCornerIndex(p, polygonVertex, controlPoint);
}

bool QdxMesh::GetMaterialIndices(QdxLayerElementArrayTemplate<int>** array) const {
    if (!array) return false;
    QdxLayerElementMaterial* e = GetElementMaterial();
    *array = e ? &e->GetIndexArray() : nullptr;
    return e != nullptr;
}

} // namespace qdxsdk
