// Deformers: skins with their clusters, and vertex-cache records.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qdxsdk/attributes.h"
#include "qdxsdk/time.h"

namespace qdxsdk {

class QdxNode;
class QdxGeometry;
class QdxPointCache;

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
    // The geometry this skin deforms (the first that holds it), or null.
    QdxGeometry* GetGeometry() const;
    // World-space positions of the geometry's control points at a time by
    // linear blending: the sum over clusters of
    // w * Link(t) * inverse(TransformLinkMatrix) * TransformMatrix * p,
    // divided by the point's weight total in normalize mode. A point no
    // cluster weighs stays with its node: global(t) * geometric * p.
    // False when the skin deforms no geometry.
    bool EvaluateDeformedPoints(QdxTime time, std::vector<QdxVector4>& points) const;
    QdxPropertyT<int> SkinningType;
    QdxPropertyT<double> DeformAccuracy;
};

// A vertex-cache deformer: control point positions over time from a cache
// file beside the scene. Cache points are in the geometry's local space as
// the file has them; PointTransform maps them to the geometry's current
// space and is kept up to date by the scene's unit conversion and by pivot
// conversion's geometric bakes, so GetFramePoints always returns points
// that match the geometry's control points.
class QdxVertexCacheDeformer : public QdxDeformer {
    QDX_DECLARE_OBJECT(QdxVertexCacheDeformer)
public:
    // The numbers are part of the file formats.
    enum ECacheFormat { eUnknownFormat = 0, ePC2 = 1, eToveCache = 2 };
    EDeformerType GetDeformerType() const override { return eVertexCache; }

    void SetCacheFile(const std::string& fileName, ECacheFormat format,
                      const std::string& channel = std::string());
    std::string GetCacheFileName() const;
    ECacheFormat GetCacheFileFormat() const;
    // The cache file's path: as recorded when absolute or when folder is
    // empty, else relative to folder (the scene file's folder).
    std::string ResolveCacheFileName(const std::string& folder) const;

    // Converts a Tove cache to a point cache file at frameRate, written
    // beside it with the extension ".pc2", and points the deformer at that
    // file (format PC2). True without work when the format is already PC2.
    bool ConvertFromToveToPC2(double frameRate, QdxStatus& status,
                              const std::string& folder = std::string());

    // Reads the cache file whole. A Tove cache is resampled at frameRate.
    bool OpenFileForRead(QdxStatus& status, const std::string& folder = std::string(),
                         double frameRate = 30.0);
    bool IsOpen() const { return mCache != nullptr; }
    void CloseFile() { mCache.reset(); }
    // The open cache, as read (points untransformed), or null.
    const QdxPointCache* GetPointCache() const { return mCache.get(); }
    // Frames of the open cache: first, last and sample count (0 when closed).
    double GetStartFrame() const;
    double GetEndFrame() const;
    int GetSampleCount() const;
    // Points of the open cache at a frame, through PointTransform.
    bool GetFramePoints(double frame, std::vector<QdxVector4>& points) const;

    QdxPropertyT<QdxString> CacheFileName, Channel;
    QdxPropertyT<int> CacheFileFormat;
    QdxPropertyT<bool> Active;
    QdxPropertyT<QdxAMatrix> PointTransform;

private:
    std::shared_ptr<QdxPointCache> mCache;
};

} // namespace qdxsdk
