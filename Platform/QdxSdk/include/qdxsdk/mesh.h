// Polygon meshes.
#pragma once

#include "qdxsdk/geometry_base.h"

namespace qdxsdk {

class QdxMesh : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxMesh)
public:
    EType GetAttributeType() const override { return eMesh; }

    int GetPolygonCount() const;
    int GetPolygonSize(int polygon) const;
    // Control point of a corner, -1 when polygon or corner is out of range.
    int GetPolygonVertex(int polygon, int corner) const;
    int GetPolygonVertexIndex(int polygon) const; // first corner's index
    // A corner's position in the polygon-vertex array and its control point;
    // false (both -1) when polygon or corner is out of range.
    bool GetCorner(int polygon, int corner, int& polygonVertex, int& controlPoint) const;
    int GetPolygonVertexCount() const;
    int* GetPolygonVertices();
    const int* GetPolygonVertices() const;
    // Each polygon's first corner in the polygon-vertex array, one per
    // polygon, never decreasing: polygon p's corners run up to where p + 1
    // starts (the last polygon's to GetPolygonVertexCount()). For loops over
    // many polygons; GetPolygonSize and GetPolygonVertexIndex give the same.
    const int* GetPolygonStarts() const;

    void ReservePolygonCount(int count);
    void ReservePolygonVertexCount(int count);
    // Polygon construction. A material index >= 0 is appended to the layer 0
    // material element when it maps by polygon; a texture UV index >= 0 to
    // the layer 0 diffuse UV element's index array when it is indexed.
    void BeginPolygon(int material = -1, int texture = -1, int group = -1, bool legacy = true);
    void AddPolygon(int index, int textureUVIndex = -1);
    void EndPolygon();
    // Appends polygons in bulk: sizes[i] corners each, corner indices packed.
    void AddPolygons(const int* sizes, int polygonCount, const int* vertices);

    // Per-corner values; see QdxLayerElementTemplate::GetPolygonVertexValue
    // for when a corner has none.
    // Normal of a corner from the first normal element. False with a zero
    // normal when the mesh has no normal element or the corner has none.
    bool GetPolygonVertexNormal(int polygon, int corner, QdxVector4& normal) const;
    // UV of a corner from the named UV set. False (and unmapped) when the
    // mesh has no such set or its mapping mode cannot map corners. Otherwise
    // true; a corner without a value, an index past the UV data included,
    // is unmapped with UV (0, 0).
    bool GetPolygonVertexUV(int polygon, int corner, const char* uvSetName, QdxVector2& uv,
                            bool& unmapped) const;
    // Colour of a corner from the first vertex colour element. False with a
    // default colour when there is none or the corner has none.
    bool GetPolygonVertexColor(int polygon, int corner, QdxColor& color) const;
    bool GetTextureUV(QdxLayerElementArrayTemplate<QdxVector2>** array,
                      QdxLayerElement::EType type = QdxLayerElement::eTextureDiffuse);
    int GetTextureUVIndex(int polygon, int corner,
                          QdxLayerElement::EType type = QdxLayerElement::eTextureDiffuse) const;
    bool GetMaterialIndices(QdxLayerElementArrayTemplate<int>** array) const;
    bool FinishRead(QdxStatus& status) override;

private:
    int mVerticesArray = -1, mStartsArray = -1;
    bool mInPolygon = false;
};

} // namespace qdxsdk
