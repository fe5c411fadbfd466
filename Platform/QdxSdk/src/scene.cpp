// Scene, document, document information and global settings.
#include <cmath>
#include <cstdio>

#include "impl.h"
#include "qdxsdk/anim.h"
#include "qdxsdk/material.h"
#include "qdxsdk/node.h"
#include "qdxsdk/scene.h"

namespace qdxsdk {

namespace detail {
void JoinSceneOf(QdxObject* container, QdxObject* object) {
    if (!container || !object) return;
    QdxScene* scene =
        container->Is<QdxScene>() ? static_cast<QdxScene*>(container) : container->GetScene();
    if (scene) scene->AddMember(object);
}
} // namespace detail

// ---------------------------------------------------------------- global settings

QDX_IMPLEMENT_OBJECT(QdxGlobalSettings, QdxObject, "QdxGlobalSettings")

QdxGlobalSettings::QdxGlobalSettings(QdxManager& m, const char* name) : QdxObject(m, name) {
    UpAxis = AddProperty(QdxIntDT, "UpAxis", 2);
    UpAxisSign = AddProperty(QdxIntDT, "UpAxisSign", 1);
    FrontAxis = AddProperty(QdxIntDT, "FrontAxis", 2);
    FrontAxisSign = AddProperty(QdxIntDT, "FrontAxisSign", 1);
    CoordSystem = AddProperty(QdxIntDT, "CoordSystem", 0);
    UnitScaleFactor = AddProperty(QdxDoubleDT, "UnitScaleFactor", 1.0);
    OriginalUnitScaleFactor = AddProperty(QdxDoubleDT, "OriginalUnitScaleFactor", 1.0);
    OriginalUpAxis = AddProperty(QdxIntDT, "OriginalUpAxis", 2);
    OriginalUpAxisSign = AddProperty(QdxIntDT, "OriginalUpAxisSign", 1);
    TimeMode = AddProperty(QdxEnumDT, "TimeMode", static_cast<int>(QdxTime::eFrames30));
    CustomFrameRate = AddProperty(QdxDoubleDT, "CustomFrameRate", -1.0);
    TimeSpanStart = AddProperty(QdxTimeDT, "TimeSpanStart", 0LL);
    TimeSpanStop = AddProperty(QdxTimeDT, "TimeSpanStop", QdxTime::kTicksPerSecond);
    AmbientColor = AddProperty(QdxColor3DT, "AmbientColor", QdxDouble3());
}

void QdxGlobalSettings::SetAxisSystem(const QdxAxisSystem& axis) {
    int us = 1, fs = 1;
    UpAxis.Set(axis.GetUpVector(us));
    UpAxisSign.Set(us);
    FrontAxis.Set(axis.GetFrontVector(fs));
    FrontAxisSign.Set(fs);
    CoordSystem.Set(axis.GetCoorSystem());
}

QdxAxisSystem QdxGlobalSettings::GetAxisSystem() const {
    int up = UpAxis.Get(), front = FrontAxis.Get(), coord = CoordSystem.Get();
    if (up < 1 || up > 3) up = 2;
    if (front < 1 || front > 2) front = 2;
    if (coord < 0 || coord > 1) coord = 0;
    return QdxAxisSystem(static_cast<QdxAxisSystem::EUpVector>(up),
                         static_cast<QdxAxisSystem::EFrontVector>(front),
                         static_cast<QdxAxisSystem::ECoordSystem>(coord),
                         UpAxisSign.Get() < 0 ? -1 : 1, FrontAxisSign.Get() < 0 ? -1 : 1);
}

void QdxGlobalSettings::SetOriginalUpAxis(const QdxAxisSystem& axis) {
    int sign = 1;
    OriginalUpAxis.Set(axis.GetUpVector(sign));
    OriginalUpAxisSign.Set(sign);
}

int QdxGlobalSettings::GetOriginalUpAxis(int& sign) const {
    const int up = OriginalUpAxis.Get();
    sign = OriginalUpAxisSign.Get() < 0 ? -1 : 1;
    return up >= 1 && up <= 3 ? up : 2;
}

void QdxGlobalSettings::SetSystemUnit(const QdxSystemUnit& unit) {
    UnitScaleFactor.Set(unit.GetScaleFactor() * unit.GetMultiplier());
}

QdxSystemUnit QdxGlobalSettings::GetSystemUnit() const {
    double s = UnitScaleFactor.Get();
    return QdxSystemUnit(std::isfinite(s) && s > 0 ? s : 1.0);
}

void QdxGlobalSettings::SetOriginalSystemUnit(const QdxSystemUnit& unit) {
    OriginalUnitScaleFactor.Set(unit.GetScaleFactor() * unit.GetMultiplier());
}

QdxSystemUnit QdxGlobalSettings::GetOriginalSystemUnit() const {
    double s = OriginalUnitScaleFactor.Get();
    return QdxSystemUnit(std::isfinite(s) && s > 0 ? s : 1.0);
}

void QdxGlobalSettings::SetTimeMode(QdxTime::EMode mode) {
    TimeMode.Set(static_cast<int>(mode));
}

QdxTime::EMode QdxGlobalSettings::GetTimeMode() const {
    int m = TimeMode.Get();
    return m >= 0 && m < QdxTime::eModesCount ? static_cast<QdxTime::EMode>(m) : QdxTime::eFrames30;
}

void QdxGlobalSettings::SetCustomFrameRate(double fps) {
    CustomFrameRate.Set(fps);
}
double QdxGlobalSettings::GetCustomFrameRate() const {
    return CustomFrameRate.Get();
}

double QdxGlobalSettings::GetFrameRate() const {
    QdxTime::EMode m = GetTimeMode();
    if (m == QdxTime::eCustom) {
        double r = CustomFrameRate.Get();
        return std::isfinite(r) && r > 0 ? r : 30.0;
    }
    return QdxTime::GetFrameRate(m == QdxTime::eDefaultMode ? QdxTime::eFrames30 : m);
}

void QdxGlobalSettings::SetFrameRate(double fps) {
    QdxTime::EMode m = QdxTime::ConvertFrameRateToTimeMode(fps);
    SetTimeMode(m);
    if (m == QdxTime::eCustom) SetCustomFrameRate(fps);
}

// eCustom with an explicit rate converts at exactly that rate, whatever the
// scene's own mode is.
QdxTime QdxGlobalSettings::GetFrameTime(long long frame) const {
    QdxTime t;
    t.SetFrame(frame, QdxTime::eCustom, GetFrameRate());
    return t;
}

long long QdxGlobalSettings::GetFrameCount(QdxTime time) const {
    return time.GetFrameCount(QdxTime::eCustom, GetFrameRate());
}

void QdxGlobalSettings::SetTimelineDefaultTimeSpan(const QdxTimeSpan& span) {
    TimeSpanStart.Set(span.GetStart());
    TimeSpanStop.Set(span.GetStop());
}

void QdxGlobalSettings::GetTimelineDefaultTimeSpan(QdxTimeSpan& span) const {
    span.Set(TimeSpanStart.Get(), TimeSpanStop.Get());
}

void QdxGlobalSettings::SetTimelineDefaultFrames(long long first, long long last) {
    SetTimelineDefaultTimeSpan(QdxTimeSpan(GetFrameTime(first), GetFrameTime(last)));
}

void QdxGlobalSettings::GetTimelineDefaultFrames(long long& first, long long& last) const {
    first = GetFrameCount(TimeSpanStart.Get());
    last = GetFrameCount(TimeSpanStop.Get());
}

// ---------------------------------------------------------------- document info

QDX_IMPLEMENT_OBJECT(QdxDocumentInfo, QdxObject, "QdxDocumentInfo")

QdxDocumentInfo::QdxDocumentInfo(QdxManager& m, const char* name) : QdxObject(m, name) {
    Original_ApplicationVendor =
        AddProperty(QdxStringDT, "Original_ApplicationVendor", std::string());
    Original_ApplicationName = AddProperty(QdxStringDT, "Original_ApplicationName", std::string());
    Original_ApplicationVersion =
        AddProperty(QdxStringDT, "Original_ApplicationVersion", std::string());
    Original_FileName = AddProperty(QdxStringDT, "Original_FileName", std::string());
    Original_DateTime_GMT = AddProperty(QdxDateTimeDT, "Original_DateTime_GMT", QdxDateTime());
    LastSaved_ApplicationVendor =
        AddProperty(QdxStringDT, "LastSaved_ApplicationVendor", std::string());
    LastSaved_ApplicationName =
        AddProperty(QdxStringDT, "LastSaved_ApplicationName", std::string());
    LastSaved_ApplicationVersion =
        AddProperty(QdxStringDT, "LastSaved_ApplicationVersion", std::string());
    LastSaved_DateTime_GMT = AddProperty(QdxDateTimeDT, "LastSaved_DateTime_GMT", QdxDateTime());
    Title = AddProperty(QdxStringDT, "Title", std::string());
    Subject = AddProperty(QdxStringDT, "Subject", std::string());
    Author = AddProperty(QdxStringDT, "Author", std::string());
    Keywords = AddProperty(QdxStringDT, "Keywords", std::string());
    Revision = AddProperty(QdxStringDT, "Revision", std::string());
    Comment = AddProperty(QdxStringDT, "Comment", std::string());
}

void QdxDocumentInfo::PrepareForWrite() {
    Title.Set(mTitle);
    Subject.Set(mSubject);
    Author.Set(mAuthor);
    Keywords.Set(mKeywords);
    Revision.Set(mRevision);
    Comment.Set(mComment);
}

bool QdxDocumentInfo::FinishRead(QdxStatus&) {
    mTitle = Title.Get();
    mSubject = Subject.Get();
    mAuthor = Author.Get();
    mKeywords = Keywords.Get();
    mRevision = Revision.Get();
    mComment = Comment.Get();
    return true;
}

// ---------------------------------------------------------------- document and scene

QDX_IMPLEMENT_ABSTRACT(QdxDocument, QdxObject, "QdxDocument")

QdxDocument::QdxDocument(QdxManager& m, const char* name) : QdxObject(m, name) {}

void QdxDocument::SetDocumentInfo(QdxDocumentInfo* info) {
    QdxProperty ref = FindProperty("DocumentInfo");
    if (!ref.IsValid()) return;
    ref.DisconnectAllSrcObject();
    if (!info) return;
    if (Is<QdxScene>()) static_cast<QdxScene*>(this)->AddMember(info);
    ref.ConnectSrcObject(info);
}

QdxDocumentInfo* QdxDocument::GetDocumentInfo() const {
    return FindProperty("DocumentInfo").GetSrcObject<QdxDocumentInfo>();
}

QDX_IMPLEMENT_OBJECT(QdxScene, QdxDocument, "QdxScene")

QdxScene::QdxScene(QdxManager& m, const char* name) : QdxDocument(m, name) {
    RootNodeRef = AddProperty(QdxReferenceDT, "RootNode", std::monostate());
    GlobalSettingsRef = AddProperty(QdxReferenceDT, "GlobalSettings", std::monostate());
    DocumentInfoRef = AddProperty(QdxReferenceDT, "DocumentInfo", std::monostate());
    CurrentStackRef = AddProperty(QdxReferenceDT, "CurrentAnimationStack", std::monostate());
    CreateDefaults();
}

void QdxScene::CreateDefaults() {
    QdxNode* root = QdxNode::Create(GetQdxManager(), "RootNode");
    AddMember(root);
    RootNodeRef.ConnectSrcObject(root);
    QdxGlobalSettings* gs = QdxGlobalSettings::Create(GetQdxManager(), "GlobalSettings");
    AddMember(gs);
    GlobalSettingsRef.ConnectSrcObject(gs);
}

bool QdxScene::AddMember(QdxObject* object) {
    if (!object || object == this) return false;
    if (QdxScene* old = object->GetScene()) {
        if (old == this) return true;
        old->DisconnectSrcObject(object);
    }
    // Not yet a member (GetScene found no link): append without searching.
    AppendSrc(object);
    object->mDst.push_back({this, -1});
    return true;
}

std::vector<QdxObject*> QdxScene::DetachMembers() {
    std::vector<QdxObject*> members;
    members.swap(mSrc);
    ++mSrcVersion;
    for (QdxObject* o : members)
        for (auto it = o->mDst.begin(); it != o->mDst.end(); ++it)
            if (it->object == this && it->property < 0) {
                o->mDst.erase(it);
                break;
            }
    return members;
}

QdxNode* QdxScene::GetRootNode() const {
    return RootNodeRef.GetSrcObject<QdxNode>();
}

QdxGlobalSettings& QdxScene::GetGlobalSettings() const {
    QdxGlobalSettings* gs = GlobalSettingsRef.GetSrcObject<QdxGlobalSettings>();
    if (!gs) {
        // A scene always has settings; recreate them if they were destroyed.
        auto* self = const_cast<QdxScene*>(this);
        gs = QdxGlobalSettings::Create(self, "GlobalSettings");
        self->GlobalSettingsRef.ConnectSrcObject(gs);
    }
    return *gs;
}

int QdxScene::GetNodeCount() const {
    return GetSrcObjectCount<QdxNode>();
}
QdxNode* QdxScene::GetNode(int index) const {
    return GetSrcObject<QdxNode>(index);
}
int QdxScene::GetMaterialCount() const {
    return GetSrcObjectCount<QdxSurfaceMaterial>();
}
QdxSurfaceMaterial* QdxScene::GetMaterial(int index) const {
    return GetSrcObject<QdxSurfaceMaterial>(index);
}
int QdxScene::GetTextureCount() const {
    return GetSrcObjectCount<QdxTexture>();
}
QdxTexture* QdxScene::GetTexture(int index) const {
    return GetSrcObject<QdxTexture>(index);
}

QdxAnimStack* QdxScene::GetCurrentAnimationStack() const {
    QdxAnimStack* s = CurrentStackRef.GetSrcObject<QdxAnimStack>();
    return s ? s : GetSrcObject<QdxAnimStack>(0);
}

bool QdxScene::SetCurrentAnimationStack(QdxAnimStack* stack) {
    CurrentStackRef.DisconnectAllSrcObject();
    return !stack || CurrentStackRef.ConnectSrcObject(stack);
}

void QdxScene::Clear() {
    GetQdxManager()->ReleaseAll(DetachMembers());
    CreateDefaults();
}

void QdxScene::ForceKill() {
    std::vector<QdxObject*> all = DetachMembers();
    all.push_back(this);
    GetQdxManager()->ReleaseAll(all);
}

bool QdxScene::FinishRead(QdxStatus& status) {
    if (!GetRootNode()) {
        status.SetCode(QdxStatus::eInvalidFile, "The scene has no root node");
        return false;
    }
    if (!GlobalSettingsRef.GetSrcObject<QdxGlobalSettings>()) {
        status.SetCode(QdxStatus::eInvalidFile, "The scene has no global settings");
        return false;
    }
    return true;
}

void QdxScene::TakeContentOf(QdxScene* other) {
    GetQdxManager()->ReleaseAll(DetachMembers());
    SetName(other->GetName());
    // Copy the scene object's own properties (values, flags) and references.
    for (int p = 0; p < other->GetPropertyCount(); ++p) {
        auto& src = other->Properties()[static_cast<size_t>(p)];
        QdxProperty mineProp = FindProperty(src.name.c_str());
        if (!mineProp.IsValid())
            mineProp = QdxProperty::Create(this, src.type, src.name.c_str(), src.label.c_str());
        if (!mineProp.IsValid()) continue;
        auto& dst = Properties()[static_cast<size_t>(mineProp.GetIndex())];
        dst.value = src.value;
        dst.flags = src.flags;
        dst.label = src.label;
        dst.enumItems = src.enumItems;
        mineProp.DisconnectAllSrcObject();
        for (QdxObject* s : std::vector<QdxObject*>(src.srcObjects)) {
            QdxProperty(other, p).DisconnectSrcObject(s);
            mineProp.ConnectSrcObject(s);
        }
    }
    for (QdxObject* o : other->DetachMembers()) {
        mSrc.push_back(o);
        o->mDst.push_back({this, -1});
    }
    ++mSrcVersion;
    other->Destroy();
}

} // namespace qdxsdk
