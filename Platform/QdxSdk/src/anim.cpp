// Animation stacks, layers, curve nodes and property evaluation.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "impl.h"
#include "qdxsdk/anim.h"
#include "qdxsdk/scene.h"
#include "value_type.h"

namespace qdxsdk {

QDX_IMPLEMENT_OBJECT(QdxAnimStack, QdxObject, "QdxAnimStack")
QdxAnimStack::QdxAnimStack(QdxManager& m, const char* name) : QdxObject(m, name) {
    Description = AddProperty(QdxStringDT, "Description", std::string());
    LocalStart = AddProperty(QdxTimeDT, "LocalStart", 0LL);
    LocalStop = AddProperty(QdxTimeDT, "LocalStop", 0LL);
    ReferenceStart = AddProperty(QdxTimeDT, "ReferenceStart", 0LL);
    ReferenceStop = AddProperty(QdxTimeDT, "ReferenceStop", 0LL);
}
QdxTimeSpan QdxAnimStack::GetLocalTimeSpan() const {
    return QdxTimeSpan(LocalStart.Get(), LocalStop.Get());
}
void QdxAnimStack::SetLocalTimeSpan(const QdxTimeSpan& s) {
    LocalStart.Set(s.GetStart());
    LocalStop.Set(s.GetStop());
}
QdxTimeSpan QdxAnimStack::GetReferenceTimeSpan() const {
    return QdxTimeSpan(ReferenceStart.Get(), ReferenceStop.Get());
}
void QdxAnimStack::SetReferenceTimeSpan(const QdxTimeSpan& s) {
    ReferenceStart.Set(s.GetStart());
    ReferenceStop.Set(s.GetStop());
}
bool QdxAnimStack::AddMember(QdxAnimLayer* layer) {
    if (!layer) return false;
    detail::JoinSceneOf(this, layer);
    return ConnectSrcObject(layer);
}
int QdxAnimStack::GetLayerCount() const {
    return GetSrcObjectCount<QdxAnimLayer>();
}
QdxAnimLayer* QdxAnimStack::GetLayer(int index) const {
    return GetSrcObject<QdxAnimLayer>(index);
}

QDX_IMPLEMENT_OBJECT(QdxAnimLayer, QdxObject, "QdxAnimLayer")
QdxAnimLayer::QdxAnimLayer(QdxManager& m, const char* name) : QdxObject(m, name) {
    Weight = AddProperty(QdxDoubleDT, "Weight", 100.0);
    Mute = AddProperty(QdxBoolDT, "Mute", false);
    Solo = AddProperty(QdxBoolDT, "Solo", false);
    Lock = AddProperty(QdxBoolDT, "Lock", false);
    BlendMode = AddProperty(QdxEnumDT, "BlendMode", static_cast<int>(eBlendAdditive));
}
int QdxAnimLayer::GetCurveNodeCount() const {
    return GetSrcObjectCount<QdxAnimCurveNode>();
}
QdxAnimCurveNode* QdxAnimLayer::GetCurveNode(int index) const {
    return GetSrcObject<QdxAnimCurveNode>(index);
}

// ---------------------------------------------------------------- curve nodes

QDX_IMPLEMENT_OBJECT(QdxAnimCurveNode, QdxObject, "QdxAnimCurveNode")
QdxAnimCurveNode::QdxAnimCurveNode(QdxManager& m, const char* name) : QdxObject(m, name) {}

QdxAnimCurveNode* QdxAnimCurveNode::CreateTypedCurveNode(QdxProperty& property, QdxScene* scene) {
    const detail::Value* v = property.RawValue();
    if (!v) return nullptr;
    double d[4];
    int n = detail::ValueTypeOf(*v).toDoubles(*v, d);
    if (n == 0) return nullptr;
    QdxObject* owner = property.GetQdxObject();
    QdxAnimCurveNode* cn = scene ? Create(scene, property.GetName())
                                 : Create(owner->GetQdxManager(), property.GetName());
    bool color = property.GetPropertyDataType().Is(QdxColor3DT) ||
                 property.GetPropertyDataType().Is(QdxColor4DT);
    static const char* xyzw[] = {"X", "Y", "Z", "W"};
    static const char* rgba[] = {"R", "G", "B", "A"};
    for (int i = 0; i < n; ++i)
        cn->AddChannel(color ? rgba[i] : xyzw[i], d[i]);
    property.ConnectSrcObject(cn);
    return cn;
}

bool QdxAnimCurveNode::AddChannel(const char* name, double value) {
    if (!name || FindProperty(name).IsValid()) return false;
    AddProperty(QdxDoubleDT, name, value);
    return true;
}

unsigned int QdxAnimCurveNode::GetChannelsCount() const {
    return static_cast<unsigned int>(GetPropertyCount());
}

int QdxAnimCurveNode::GetChannelIndex(const char* name) const {
    return FindProperty(name).GetIndex();
}

QdxString QdxAnimCurveNode::GetChannelName(int channel) const {
    return GetPropertyAt(channel).GetName();
}

double QdxAnimCurveNode::GetChannelValue(unsigned int channel, double defaultValue) const {
    QdxProperty p = GetPropertyAt(static_cast<int>(channel));
    return p.IsValid() ? p.Get<double>() : defaultValue;
}

bool QdxAnimCurveNode::SetChannelValue(unsigned int channel, double value) {
    QdxProperty p = GetPropertyAt(static_cast<int>(channel));
    return p.IsValid() && p.Set(value);
}

bool QdxAnimCurveNode::ConnectToChannel(QdxAnimCurve* curve, unsigned int channel, bool) {
    QdxProperty p = GetPropertyAt(static_cast<int>(channel));
    if (!p.IsValid() || !curve) return false;
    detail::JoinSceneOf(this, curve);
    return p.ConnectSrcObject(curve);
}

bool QdxAnimCurveNode::DisconnectFromChannel(QdxAnimCurve* curve, unsigned int channel) {
    QdxProperty p = GetPropertyAt(static_cast<int>(channel));
    return p.IsValid() && p.DisconnectSrcObject(curve);
}

int QdxAnimCurveNode::GetCurveCount(unsigned int channel, const char*) const {
    return GetPropertyAt(static_cast<int>(channel)).GetSrcObjectCount<QdxAnimCurve>();
}

QdxAnimCurve* QdxAnimCurveNode::GetCurve(unsigned int channel, unsigned int index) const {
    return GetPropertyAt(static_cast<int>(channel))
        .GetSrcObject<QdxAnimCurve>(static_cast<int>(index));
}

QdxAnimCurve* QdxAnimCurveNode::CreateCurve(const char* name, unsigned int channel) {
    if (channel >= GetChannelsCount()) return nullptr;
    QdxAnimCurve* c = QdxAnimCurve::Create(this, name ? name : "");
    ConnectToChannel(c, channel);
    return c;
}

bool QdxAnimCurveNode::IsAnimated(bool) const {
    for (unsigned int c = 0; c < GetChannelsCount(); ++c)
        for (int i = 0; i < GetCurveCount(c); ++i)
            if (GetCurve(c, static_cast<unsigned int>(i))->KeyGetCount() > 0) return true;
    return false;
}

QdxProperty QdxAnimCurveNode::GetAnimatedProperty() const {
    return GetDstProperty(0);
}

QdxAnimLayer* QdxAnimCurveNode::GetLayer() const {
    return GetDstObject<QdxAnimLayer>(0);
}

// ---------------------------------------------------------------- property animation

QdxAnimCurveNode* QdxProperty::GetCurveNode(QdxAnimLayer* layer, bool create) {
    if (!IsValid() || !layer) return nullptr;
    for (int i = 0; i < GetSrcObjectCount<QdxAnimCurveNode>(); ++i) {
        QdxAnimCurveNode* cn = GetSrcObject<QdxAnimCurveNode>(i);
        if (cn->GetLayer() == layer) return cn;
    }
    if (!create) return nullptr;
    QdxScene* scene = mObject->GetScene();
    if (!scene) scene = layer->GetScene();
    QdxAnimCurveNode* cn = QdxAnimCurveNode::CreateTypedCurveNode(*this, scene);
    if (cn) layer->ConnectSrcObject(cn);
    return cn;
}

namespace {
QdxAnimStack* DefaultStack(const QdxObject* object) {
    QdxScene* scene = object ? object->GetScene() : nullptr;
    return scene ? scene->GetCurrentAnimationStack() : nullptr;
}
} // namespace

QdxAnimCurveNode* QdxProperty::GetCurveNode(bool create) {
    QdxAnimStack* stack = DefaultStack(mObject);
    QdxAnimLayer* layer = stack ? stack->GetLayer(0) : nullptr;
    return layer ? GetCurveNode(layer, create) : nullptr;
}

QdxAnimCurve* QdxProperty::GetCurve(QdxAnimLayer* layer, const char* channel, bool create) {
    QdxAnimCurveNode* cn = GetCurveNode(layer, create);
    if (!cn) return nullptr;
    int c = channel ? cn->GetChannelIndex(channel) : 0;
    if (c < 0) return nullptr;
    QdxAnimCurve* curve = cn->GetCurve(static_cast<unsigned int>(c));
    if (!curve && create) curve = cn->CreateCurve(cn->GetName(), static_cast<unsigned int>(c));
    return curve;
}

bool QdxProperty::IsAnimated(QdxAnimLayer* layer) const {
    if (!IsValid()) return false;
    for (int i = 0; i < GetSrcObjectCount<QdxAnimCurveNode>(); ++i) {
        QdxAnimCurveNode* cn = GetSrcObject<QdxAnimCurveNode>(i);
        if ((!layer || cn->GetLayer() == layer) && cn->IsAnimated()) return true;
    }
    return false;
}

bool QdxProperty::EvaluateDoubles(QdxTime time, double* out, int count, QdxAnimStack* stack) const {
    const detail::Value* v = RawValue();
    if (!v || count <= 0 || count > 4) return false;
    double base[4] = {0, 0, 0, 0};
    int n = detail::ValueTypeOf(*v).toDoubles(*v, base);
    if (n == 0) return false;
    for (int i = 0; i < count; ++i)
        out[i] = i < n ? base[i] : 0.0;
    if (GetSrcObjectCount<QdxAnimCurveNode>() == 0) return true;
    if (!stack) stack = DefaultStack(mObject);
    if (!stack) {
        // Objects outside a scene: the stack of the first curve node's layer.
        QdxAnimCurveNode* cn = GetSrcObject<QdxAnimCurveNode>(0);
        QdxAnimLayer* l = cn->GetLayer();
        stack = l ? l->GetDstObject<QdxAnimStack>(0) : nullptr;
        if (!stack) return true;
    }
    bool multiplicative = std::strcmp(GetName().Buffer(), "Lcl Scaling") == 0;
    bool anySolo = false;
    for (int l = 0; l < stack->GetLayerCount(); ++l)
        anySolo |= stack->GetLayer(l)->Solo.Get();
    auto* self = const_cast<QdxProperty*>(this);
    for (int l = 0; l < stack->GetLayerCount(); ++l) {
        QdxAnimLayer* layer = stack->GetLayer(l);
        if (layer->Mute.Get() || (anySolo && l > 0 && !layer->Solo.Get())) continue;
        QdxAnimCurveNode* cn = self->GetCurveNode(layer, false);
        if (!cn) continue;
        double w = layer->Weight.Get() / 100.0;
        for (int c = 0; c < count && c < static_cast<int>(cn->GetChannelsCount()); ++c) {
            QdxAnimCurve* curve = cn->GetCurve(static_cast<unsigned int>(c));
            double lv = curve && curve->KeyGetCount() > 0
                            ? curve->Evaluate(time)
                            : cn->GetChannelValue(static_cast<unsigned int>(c), out[c]);
            int mode = layer->BlendMode.Get();
            if (l == 0 || mode != QdxAnimLayer::eBlendAdditive)
                out[c] += (lv - out[c]) * w;
            else if (multiplicative)
                out[c] *= std::pow(lv, w);
            else
                out[c] += lv * w;
        }
    }
    return true;
}

} // namespace qdxsdk
