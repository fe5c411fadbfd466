// Scene nodes: hierarchy, attribute, materials, visibility, targets and the
// transform with its two pivot sets.
//
// A node's local matrix, composed as column-vector algebra (rightmost applies
// first), is
//   T * Roff * Rp * Rpre * R * inverse(Rpost) * inverse(Rp) * Soff * Sp * S * inverse(Sp)
// where R is LclRotation in the rotation order of the pivot set, Rpre and
// Rpost are XYZ Euler rotations, and S is LclScaling. The geometric
// translation, rotation and scaling (Tg * Rg * Sg) apply to the node's own
// attribute only, never to its children.
#pragma once

#include "qdxsdk/object.h"
#include "qdxsdk/time.h"

namespace qdxsdk {

class QdxNodeAttribute;
class QdxMesh;
class QdxNurbs;
class QdxNurbsSurface;
class QdxNurbsCurve;
class QdxTrimNurbsSurface;
class QdxPatch;
class QdxCamera;
class QdxLight;
class QdxSkeleton;
class QdxLine;
class QdxGeometry;
class QdxSurfaceMaterial;
class QdxAnimStack;

enum EQdxQuatInterpMode {
    eQuatInterpOff = 0,
    eQuatInterpClassic = 1,
    eQuatInterpSlerp = 2,
    eQuatInterpCubic = 3,
    eQuatInterpCount = 4
};

// How a node combines its parent's rotation (R) and scaling (S) with its
// own (r, s). RrSs: the parent's scaling is applied in the child's rotated
// frame (no shear); RSrs: plain matrix product; Rrs: the parent's scaling is
// not inherited. The child's position always follows the parent's full
// matrix.
enum EQdxTransformInheritType { eInheritRrSs = 0, eInheritRSrs = 1, eInheritRrs = 2 };

class QdxNode : public QdxObject {
    QDX_DECLARE_OBJECT(QdxNode)
public:
    enum EPivotSet { eSourcePivot = 0, eDestinationPivot = 1 };
    enum EPivotState { ePivotActive = 0, ePivotReference = 1 };
    enum EShadingMode {
        eHardShading = 0,
        eWireFrame = 1,
        eFlatShading = 2,
        eLightShading = 3,
        eTextureShading = 4,
        eFullShading = 5
    };

    // Hierarchy.
    bool AddChild(QdxNode* child);
    QdxNode* RemoveChild(QdxNode* child);
    int GetChildCount(bool recursive = false) const;
    QdxNode* GetChild(int index) const;
    QdxNode* GetParent() const;
    QdxNode* FindChild(const char* name, bool recursive = true) const;

    // Attribute (shared by every node that carries it).
    QdxNodeAttribute* SetNodeAttribute(QdxNodeAttribute* attribute);
    QdxNodeAttribute* GetNodeAttribute() const;
    int GetNodeAttributeCount() const;
    QdxNodeAttribute* GetNodeAttributeByIndex(int index) const;
    QdxGeometry* GetGeometry() const;
    QdxMesh* GetMesh() const;
    QdxNurbs* GetNurbs() const;
    QdxNurbsSurface* GetNurbsSurface() const;
    QdxNurbsCurve* GetNurbsCurve() const;
    QdxTrimNurbsSurface* GetTrimNurbsSurface() const;
    QdxPatch* GetPatch() const;
    QdxCamera* GetCamera() const;
    QdxLight* GetLight() const;
    QdxSkeleton* GetSkeleton() const;
    QdxLine* GetLine() const;

    // Materials, in slot order.
    int AddMaterial(QdxSurfaceMaterial* material);
    bool RemoveMaterial(QdxSurfaceMaterial* material);
    int GetMaterialCount() const;
    QdxSurfaceMaterial* GetMaterial(int index) const;
    int GetMaterialIndex(const char* name) const;
    void SetShadingMode(EShadingMode mode);
    EShadingMode GetShadingMode() const;

    void SetVisibility(bool visible);
    bool GetVisibility() const;

    // Targets: with applyTarget, evaluation turns the node so that its
    // attribute's forward axis (a camera's +X, a light's -Y; +X without an
    // attribute) points at the target's position, and the attribute's up
    // axis leans towards the target-up node's position, or towards the
    // scene's up axis when there is no target-up node.
    void SetTarget(QdxNode* node);
    QdxNode* GetTarget() const;
    void SetTargetUp(QdxNode* node);
    QdxNode* GetTargetUp() const;

    // Pivot sets.
    void SetPivotState(EPivotSet set, EPivotState state);
    void GetPivotState(EPivotSet set, EPivotState& state) const;
    void SetRotationActive(bool active);
    bool GetRotationActive() const;
    void SetRotationOrder(EPivotSet set, EQdxRotationOrder order);
    void GetRotationOrder(EPivotSet set, EQdxRotationOrder& order) const;
    EQdxRotationOrder GetRotationOrder(EPivotSet set) const;
    void SetQuaternionInterpolation(EPivotSet set, EQdxQuatInterpMode mode);
    EQdxQuatInterpMode GetQuaternionInterpolation(EPivotSet set) const;
    void SetRotationOffset(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetRotationOffset(EPivotSet set) const;
    void SetRotationPivot(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetRotationPivot(EPivotSet set) const;
    void SetPreRotation(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetPreRotation(EPivotSet set) const;
    void SetPostRotation(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetPostRotation(EPivotSet set) const;
    void SetScalingOffset(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetScalingOffset(EPivotSet set) const;
    void SetScalingPivot(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetScalingPivot(EPivotSet set) const;
    void SetGeometricTranslation(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetGeometricTranslation(EPivotSet set) const;
    void SetGeometricRotation(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetGeometricRotation(EPivotSet set) const;
    void SetGeometricScaling(EPivotSet set, const QdxVector4& v);
    QdxVector4 GetGeometricScaling(EPivotSet set) const;
    // Copies one set into the other; ResetPivotSet makes a set neutral.
    void CopyPivotSet(EPivotSet from, EPivotSet to);
    void ResetPivotSet(EPivotSet set);

    void SetTransformationInheritType(EQdxTransformInheritType type);
    void GetTransformationInheritType(EQdxTransformInheritType& type) const;
    EQdxTransformInheritType GetTransformationInheritType() const;

    // The values of LclTranslation, LclRotation and LclScaling at a time,
    // every animation layer of the current stack applied. With applyTarget
    // and a target node, the rotation is the one that aims the node at its
    // target (in the rotation order of the pivot set). w is 1.
    QdxVector4 EvaluateLocalTranslation(QdxTime time = QdxTime(), EPivotSet set = eSourcePivot,
                                        bool applyTarget = false, bool forceEval = false);
    QdxVector4 EvaluateLocalRotation(QdxTime time = QdxTime(), EPivotSet set = eSourcePivot,
                                     bool applyTarget = false, bool forceEval = false);
    QdxVector4 EvaluateLocalScaling(QdxTime time = QdxTime(), EPivotSet set = eSourcePivot,
                                    bool applyTarget = false, bool forceEval = false);
    // The local matrix by the formula above, with the pivot set's values.
    QdxAMatrix EvaluateLocalTransform(QdxTime time = QdxTime(), EPivotSet set = eSourcePivot,
                                      bool applyTarget = false, bool forceEval = false);
    // The world matrix, parents and inherit types applied.
    QdxAMatrix EvaluateGlobalTransform(QdxTime time = QdxTime(), EPivotSet set = eSourcePivot,
                                       bool applyTarget = false, bool forceEval = false);
    // Tg * Rg * Sg of the pivot set.
    QdxAMatrix GetGeometricTransform(EPivotSet set = eSourcePivot) const;

    // Rewrites LclTranslation, LclRotation, LclScaling and their animation
    // (in stack, null: the current stack) of this node and its descendants so
    // that the convertTo set, evaluated, gives the same world-space result
    // as the other set does now. Geometric transforms of the other set are
    // baked into the node's own geometry; the other set then equals the
    // convertTo set. Animated channels are baked at every frame of
    // frameRate across their keys; keyReduce removes the redundant keys.
    void ConvertPivotAnimationRecursive(QdxAnimStack* stack, EPivotSet convertTo, double frameRate,
                                        bool keyReduce = true);

    QdxPropertyT<QdxDouble3> LclTranslation, LclRotation, LclScaling;
    QdxPropertyT<double> Visibility;
    QdxPropertyT<bool> VisibilityInheritance, Show;
    QdxPropertyT<int> InheritType, ShadingMode;
    QdxPropertyT<bool> RotationActive;
    QdxProperty LookAtProperty, UpVectorProperty;

private:
    struct PivotProps {
        QdxPropertyT<QdxDouble3> RotationOffset, RotationPivot, ScalingOffset, ScalingPivot;
        QdxPropertyT<QdxDouble3> PreRotation, PostRotation;
        QdxPropertyT<QdxDouble3> GeometricTranslation, GeometricRotation, GeometricScaling;
        QdxPropertyT<int> RotationOrder, PivotState, QuaternionInterpolate;
    };
    PivotProps mSets[2];
    const PivotProps& Set(EPivotSet s) const { return mSets[s == eDestinationPivot ? 1 : 0]; }
    PivotProps& Set(EPivotSet s) { return mSets[s == eDestinationPivot ? 1 : 0]; }
};

} // namespace qdxsdk
