// Deformers: skins with their clusters, and vertex-cache records.
#pragma once

#include "qdxsdk/attributes.h"

namespace qdxsdk {

class QdxNode;

class QdxDeformer : public QdxObject {
    QDX_DECLARE_ABSTRACT(QdxDeformer)
public:
    enum EDeformerType { eUnknown = 0, eSkin = 1, eBlendShape = 2, eVertexCache = 3 };
    virtual EDeformerType GetDeformerType() const = 0;
};

class QdxCluster : public QdxObject {
    QDX_DECLARE_OBJECT(QdxCluster)
public:
    enum ELinkMode { eNormalize = 0, eAdditive = 1, eTotalOne = 2 };
    void AddControlPointIndex(int index, double weight);
    int GetControlPointIndicesCount() const;
    int* GetControlPointIndices();
    double* GetControlPointWeights();
    void SetControlPointIWCount(int count);
    // The mesh's global matrix at binding time, and the link's.
    void SetTransformMatrix(const QdxAMatrix& m) { TransformMatrix.Set(m); }
    QdxAMatrix& GetTransformMatrix(QdxAMatrix& m) const { return m = TransformMatrix.Get(); }
    void SetTransformLinkMatrix(const QdxAMatrix& m) { TransformLinkMatrix.Set(m); }
    QdxAMatrix& GetTransformLinkMatrix(QdxAMatrix& m) const {
        return m = TransformLinkMatrix.Get();
    }
    void SetLink(QdxNode* node);
    QdxNode* GetLink() const;
    void SetLinkMode(ELinkMode mode) { LinkMode.Set(mode); }
    ELinkMode GetLinkMode() const { return static_cast<ELinkMode>(LinkMode.Get()); }

    QdxPropertyT<QdxAMatrix> TransformMatrix, TransformLinkMatrix;
    QdxPropertyT<int> LinkMode;
    QdxProperty LinkProperty;

private:
    int mIndicesArray = -1, mWeightsArray = -1;
};

class QdxSkin : public QdxDeformer {
    QDX_DECLARE_OBJECT(QdxSkin)
public:
    enum EType { eRigid = 0, eLinear = 1, eDualQuaternion = 2, eBlend = 3 };
    EDeformerType GetDeformerType() const override { return eSkin; }
    bool AddCluster(QdxCluster* cluster);
    int GetClusterCount() const;
    QdxCluster* GetCluster(int index) const;
    QdxPropertyT<int> SkinningType;
    QdxPropertyT<double> DeformAccuracy;
};

// A vertex-cache deformer record: where the cache is and its format.
class QdxVertexCacheDeformer : public QdxDeformer {
    QDX_DECLARE_OBJECT(QdxVertexCacheDeformer)
public:
    enum ECacheFormat { eUnknownFormat = 0, eChannelCache = 1, eToveCache = 2, ePC2 = 3 };
    EDeformerType GetDeformerType() const override { return eVertexCache; }
    QdxPropertyT<QdxString> CacheFileName, Channel;
    QdxPropertyT<int> CacheFileFormat;
    QdxPropertyT<bool> Active;
};

} // namespace qdxsdk
