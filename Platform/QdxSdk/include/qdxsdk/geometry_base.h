// Control points, layer element access and deformers shared by every
// geometry kind.
#pragma once

#include "qdxsdk/deformer.h"
#include "qdxsdk/layer_element.h"

namespace qdxsdk {

class QdxGeometryBase : public QdxLayerContainer {
    QDX_DECLARE_ABSTRACT(QdxGeometryBase)
public:
    void InitControlPoints(int count);
    virtual int GetControlPointsCount() const;
    // Packed (x, y, z, w) points; w is 1 for polygons, the weight for NURBS.
    QdxVector4* GetControlPoints();
    const QdxVector4* GetControlPoints() const;
    void SetControlPointAt(const QdxVector4& point, int index);
    QdxVector4 GetControlPointAt(int index) const;

    // Elements of layer 0 (normals, colours) and UV sets by name or index.
    QdxLayerElementNormal* GetElementNormal(int index = 0) const;
    int GetElementNormalCount() const;
    QdxLayerElementVertexColor* GetElementVertexColor(int index = 0) const;
    int GetElementVertexColorCount() const;
    QdxLayerElementMaterial* GetElementMaterial(int index = 0) const;
    QdxLayerElementUV* GetElementUV(const char* name) const;
    QdxLayerElementUV* GetElementUV(int index = 0) const;
    int GetElementUVCount() const;
    void GetUVSetNames(QdxStringList& names) const;
    // Creates an element on layer 0 (made when missing) in its natural slot.
    QdxLayerElementNormal* CreateElementNormal();
    QdxLayerElementUV*
    CreateElementUV(const char* name,
                    QdxLayerElement::EType type = QdxLayerElement::eTextureDiffuse);
    QdxLayerElementVertexColor* CreateElementVertexColor();
    QdxLayerElementMaterial* CreateElementMaterial();

protected:
    int mControlPointsArray = -1;
};

class QdxGeometry : public QdxGeometryBase {
    QDX_DECLARE_ABSTRACT(QdxGeometry)
public:
    int AddDeformer(QdxDeformer* deformer);
    int GetDeformerCount() const;
    int GetDeformerCount(QdxDeformer::EDeformerType type) const;
    QdxDeformer* GetDeformer(int index, QdxStatus* status = nullptr) const;
    QdxDeformer* GetDeformer(int index, QdxDeformer::EDeformerType type,
                             QdxStatus* status = nullptr) const;
};

} // namespace qdxsdk
