// Scene, document information, global settings, axis systems and units.
#pragma once

#include "qdxsdk/object.h"
#include "qdxsdk/time.h"

namespace qdxsdk {

class QdxNode;
class QdxScene;
class QdxAnimStack;
class QdxSurfaceMaterial;
class QdxTexture;

// An axis system: which axis is up (with sign), which of the two remaining
// axes is the front (parity even: the first of them in X, Y, Z order; odd:
// the second, with sign), and the handedness. The right axis follows from
// up and front.
class QdxAxisSystem {
public:
    enum EUpVector { eXAxis = 1, eYAxis = 2, eZAxis = 3 };
    enum EFrontVector { eParityEven = 1, eParityOdd = 2 };
    enum ECoordSystem { eRightHanded = 0, eLeftHanded = 1 };

    QdxAxisSystem(EUpVector up = eYAxis, EFrontVector front = eParityOdd,
                  ECoordSystem coord = eRightHanded, int upSign = 1, int frontSign = 1);

    static const QdxAxisSystem ToveYUp; // Y up, Z front, right-handed
    static const QdxAxisSystem ToveZUp; // Z up, -Y front, right-handed

    EUpVector GetUpVector(int& sign) const {
        sign = mUpSign;
        return mUp;
    }
    EFrontVector GetFrontVector(int& sign) const {
        sign = mFrontSign;
        return mFront;
    }
    ECoordSystem GetCoorSystem() const { return mCoord; }
    friend bool operator==(const QdxAxisSystem& a, const QdxAxisSystem& b);
    friend bool operator!=(const QdxAxisSystem& a, const QdxAxisSystem& b) { return !(a == b); }

    // Columns: the right, up and front directions of this system expressed
    // in file coordinates (row-stored: rows 0..2 are right, up, front).
    QdxAMatrix GetBasis() const;
    // Rotation that maps coordinates of from into coordinates of this system.
    QdxAMatrix GetConversionFrom(const QdxAxisSystem& from) const;

    // Re-expresses the scene in this axis system, keeping the physical
    // scene: world-space positions become the same points in the new axes.
    // Handedness changes are refused (false). Sets the scene's axis system.
    bool ConvertScene(QdxScene* scene) const;

private:
    EUpVector mUp;
    EFrontVector mFront;
    ECoordSystem mCoord;
    int mUpSign;
    int mFrontSign;
};

// A length unit as its size in centimetres.
class QdxSystemUnit {
public:
    struct ConversionOptions {
        bool mConvertCameraClipPlanes = true;
        bool mConvertClusters = true;
        bool mConvertLimits = true;
    };
    static const ConversionOptions DefaultConversionOptions;

    explicit QdxSystemUnit(double centimetresPerUnit = 1.0, double multiplier = 1.0);
    static const QdxSystemUnit mm, cm, dm, m, km, Inch, Foot, Yard, Mile;

    double GetScaleFactor() const { return mScale; }
    double GetMultiplier() const { return mMultiplier; }
    // "mm", "cm", "m", ... (abbreviated) or "millimeter", ...; a unit that is
    // none of the named ones gives its factor, e.g. "2.5 cm".
    QdxString GetScaleFactorAsString(bool abbreviated = true) const;
    // Factor that turns lengths in this unit into lengths in target.
    double GetConversionFactorTo(const QdxSystemUnit& target) const;
    friend bool operator==(const QdxSystemUnit& a, const QdxSystemUnit& b) {
        return a.mScale * a.mMultiplier == b.mScale * b.mMultiplier;
    }
    friend bool operator!=(const QdxSystemUnit& a, const QdxSystemUnit& b) { return !(a == b); }

    // Scales every length of the scene so that it is expressed in this
    // unit; the physical size is kept and nothing is left as a hidden scale.
    bool ConvertScene(QdxScene* scene,
                      const ConversionOptions& options = DefaultConversionOptions) const;

private:
    double mScale;
    double mMultiplier;
};

class QdxGlobalSettings : public QdxObject {
    QDX_DECLARE_OBJECT(QdxGlobalSettings)
public:
    void SetAxisSystem(const QdxAxisSystem& axis);
    QdxAxisSystem GetAxisSystem() const;
    // The up axis the scene was authored with, before any conversion (1 X,
    // 2 Y, 3 Z, with its sign); recorded only, it turns nothing.
    void SetOriginalUpAxis(const QdxAxisSystem& axis);
    int GetOriginalUpAxis(int& sign) const;
    void SetSystemUnit(const QdxSystemUnit& unit);
    QdxSystemUnit GetSystemUnit() const;
    void SetOriginalSystemUnit(const QdxSystemUnit& unit);
    QdxSystemUnit GetOriginalSystemUnit() const;
    // The scene's time mode and its custom rate (used when the mode is
    // eCustom). Both are saved with the file; the custom rate belongs to this
    // scene alone and never to the process (QdxTime::SetGlobalTimeMode).
    void SetTimeMode(QdxTime::EMode mode);
    QdxTime::EMode GetTimeMode() const;
    void SetCustomFrameRate(double fps);
    double GetCustomFrameRate() const;
    // Frame rate of the time mode (the custom rate for eCustom; 30 fps when
    // that rate is not finite and positive, and for eDefaultMode).
    double GetFrameRate() const;
    // Sets the time mode of a rate in frames per second: a named mode when
    // one matches, else eCustom with fps as the custom rate.
    void SetFrameRate(double fps);
    // Frames and times at the scene's frame rate (GetFrameRate): the time of
    // a frame and the frame of a time (truncated towards zero).
    QdxTime GetFrameTime(long long frame) const;
    long long GetFrameCount(QdxTime time) const;
    void SetTimelineDefaultTimeSpan(const QdxTimeSpan& span);
    void GetTimelineDefaultTimeSpan(QdxTimeSpan& span) const;
    // The default time span as frames at the scene's frame rate.
    void SetTimelineDefaultFrames(long long first, long long last);
    void GetTimelineDefaultFrames(long long& first, long long& last) const;

    QdxPropertyT<int> UpAxis, UpAxisSign, FrontAxis, FrontAxisSign, CoordSystem;
    QdxPropertyT<double> UnitScaleFactor, OriginalUnitScaleFactor;
    QdxPropertyT<int> OriginalUpAxis, OriginalUpAxisSign;
    QdxPropertyT<int> TimeMode;
    QdxPropertyT<double> CustomFrameRate;
    QdxPropertyT<QdxTime> TimeSpanStart, TimeSpanStop;
    QdxPropertyT<QdxDouble3> AmbientColor;
};

// Who wrote the file and when, and free texts.
class QdxDocumentInfo : public QdxObject {
    QDX_DECLARE_OBJECT(QdxDocumentInfo)
public:
    QdxString mTitle, mSubject, mAuthor, mKeywords, mRevision, mComment;

    QdxPropertyT<QdxString> Original_ApplicationVendor, Original_ApplicationName,
        Original_ApplicationVersion, Original_FileName;
    QdxPropertyT<QdxDateTime> Original_DateTime_GMT;
    QdxPropertyT<QdxString> LastSaved_ApplicationVendor, LastSaved_ApplicationName,
        LastSaved_ApplicationVersion;
    QdxPropertyT<QdxDateTime> LastSaved_DateTime_GMT;

    void PrepareForWrite() override;
    bool FinishRead(QdxStatus& status) override;

private:
    QdxPropertyT<QdxString> Title, Subject, Author, Keywords, Revision, Comment;
};

class QdxDocument : public QdxObject {
    QDX_DECLARE_ABSTRACT(QdxDocument)
public:
    void SetDocumentInfo(QdxDocumentInfo* info);
    QdxDocumentInfo* GetDocumentInfo() const;
};

// A scene: its members are every object created with the scene (or with an
// object of the scene) as container; they are the scene's source objects.
class QdxScene : public QdxDocument {
    QDX_DECLARE_OBJECT(QdxScene)
public:
    QdxNode* GetRootNode() const;
    QdxGlobalSettings& GetGlobalSettings() const;
    int GetNodeCount() const;
    QdxNode* GetNode(int index) const;
    int GetMaterialCount() const;
    QdxSurfaceMaterial* GetMaterial(int index) const;
    int GetTextureCount() const;
    QdxTexture* GetTexture(int index) const;
    QdxAnimStack* GetCurrentAnimationStack() const;
    bool SetCurrentAnimationStack(QdxAnimStack* stack);
    int GetMemberCount() const { return GetSrcObjectCount(); }
    QdxObject* GetMember(int index) const { return GetSrcObject(index); }
    // Makes object a member of this scene (it leaves its former scene).
    bool AddMember(QdxObject* object);
    // Destroys every member and recreates an empty root and settings.
    void Clear();
    // Destroys the scene with all its members.
    void ForceKill();
    // The scene's frame rate (from the global settings' time mode).
    double GetFrameRate() const { return GetGlobalSettings().GetFrameRate(); }

    bool FinishRead(QdxStatus& status) override;
    // Takes the members and the settings of other (which is left empty and
    // destroyed); used by readers to publish a complete scene at once.
    void TakeContentOf(QdxScene* other);

private:
    QdxProperty RootNodeRef, GlobalSettingsRef, DocumentInfoRef, CurrentStackRef;
    void CreateDefaults();
    // Empties the member list in one pass and returns the former members.
    std::vector<QdxObject*> DetachMembers();
};

} // namespace qdxsdk
