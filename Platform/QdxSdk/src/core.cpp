// Class ids, data types, properties, objects and the manager.
#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <unordered_set>

#include "array_faults.h"
#include "pending_array.h"
#include "qdxsdk/io.h"
#include "qdxsdk/object.h"
#include "qdxsdk/scene.h"
#include "value_type.h"

namespace qdxsdk {

// ---------------------------------------------------------------- class ids

namespace {
std::map<std::string, const QdxClassId*>& ClassRegistry() {
    static std::map<std::string, const QdxClassId*> registry;
    return registry;
}
} // namespace

QdxClassId::QdxClassId(const char* name, const QdxClassId* parent, Factory factory)
    : mName(name), mParent(parent), mFactory(factory) {
    ClassRegistry()[name] = this;
}

bool QdxClassId::Is(const QdxClassId& other) const {
    for (const QdxClassId* c = this; c; c = c->mParent)
        if (c == &other) return true;
    return false;
}

const QdxClassId* QdxClassId::Find(const char* name) {
    auto it = ClassRegistry().find(name ? name : "");
    return it == ClassRegistry().end() ? nullptr : it->second;
}

bool QdxCriteria::Matches(const QdxObject* object) const {
    if (!object) return false;
    if (!mClassId) return true;
    return mStrict ? &object->GetClassId() == mClassId : object->GetClassId().Is(*mClassId);
}

// ---------------------------------------------------------------- data types

const QdxDataType QdxUndefinedDT(eQdxUndefined, "");
const QdxDataType QdxBoolDT(eQdxBool, "Bool");
const QdxDataType QdxIntDT(eQdxInt, "Int");
const QdxDataType QdxFloatDT(eQdxFloat, "Float");
const QdxDataType QdxDoubleDT(eQdxDouble, "Double");
const QdxDataType QdxDouble2DT(eQdxDouble2, "Double2");
const QdxDataType QdxDouble3DT(eQdxDouble3, "Double3");
const QdxDataType QdxDouble4DT(eQdxDouble4, "Double4");
const QdxDataType QdxColor3DT(eQdxDouble3, "Color3");
const QdxDataType QdxColor4DT(eQdxDouble4, "Color4");
const QdxDataType QdxDouble4x4DT(eQdxDouble4x4, "Matrix");
const QdxDataType QdxStringDT(eQdxString, "String");
const QdxDataType QdxStringListDT(eQdxStringList, "StringList");
const QdxDataType QdxDateTimeDT(eQdxDateTime, "DateTime");
const QdxDataType QdxLongLongDT(eQdxLongLong, "LongLong");
const QdxDataType QdxEnumDT(eQdxEnum, "Enum");
const QdxDataType QdxTimeDT(eQdxTime, "Time");
const QdxDataType QdxReferenceDT(eQdxReference, "Reference");

bool QdxDataType::Is(const QdxDataType& other) const {
    return mType == other.mType && std::strcmp(mName, other.mName) == 0;
}

QdxDataType QdxDataType::FromName(const char* name) {
    static const QdxDataType* all[] = {
        &QdxBoolDT,    &QdxIntDT,        &QdxFloatDT,    &QdxDoubleDT,   &QdxDouble2DT,
        &QdxDouble3DT, &QdxDouble4DT,    &QdxColor3DT,   &QdxColor4DT,   &QdxDouble4x4DT,
        &QdxStringDT,  &QdxStringListDT, &QdxDateTimeDT, &QdxLongLongDT, &QdxEnumDT,
        &QdxTimeDT,    &QdxReferenceDT};
    for (const QdxDataType* t : all)
        if (name && std::strcmp(t->GetName(), name) == 0) return *t;
    return QdxUndefinedDT;
}

namespace detail {
size_t StorageIndex(EQdxType type) {
    return ValueTypeOf(type).storage;
}

Value DefaultValue(EQdxType type) {
    return ValueTypeOf(type).defaultValue();
}

size_t ArrayElementSize(ArrayKind kind) {
    switch (kind) {
    case ArrayKind::Int32:
        return 4;
    case ArrayKind::Int64:
        return 8;
    case ArrayKind::Double:
        return 8;
    case ArrayKind::UInt8:
        return 1;
    }
    return 0;
}

ArrayRec::ArrayRec() = default;
ArrayRec::ArrayRec(std::string arrayName, ArrayKind arrayKind)
    : name(std::move(arrayName)), kind(arrayKind) {}
ArrayRec::~ArrayRec() = default;
ArrayRec::ArrayRec(ArrayRec&& other) noexcept = default;
ArrayRec& ArrayRec::operator=(ArrayRec&& other) noexcept = default;
ArrayRec::ArrayRec(const ArrayRec& other) : name(other.name), kind(other.kind) {
    other.Decode();
    mI32 = other.mI32;
    mI64 = other.mI64;
    mF64 = other.mF64;
    mU8 = other.mU8;
}
ArrayRec& ArrayRec::operator=(const ArrayRec& other) {
    if (this != &other) *this = ArrayRec(other);
    return *this;
}

void ArrayRec::DecodePending() const {
    if (mPending->IsDecoded()) return;
    // Logically const: the elements are the same, only where they live changes.
    mPending->DecodeAll(const_cast<ArrayRec*>(this)->mF64);
}

bool ArrayRec::IsPending() const {
    return mPending && !mPending->IsDecoded();
}

void ArrayRec::SetPending(std::unique_ptr<PendingArray> pending) {
    Release();
    mPending = std::move(pending);
}

void ArrayRec::TakeElements(ArrayRec& other) {
    mI32.swap(other.mI32);
    mI64.swap(other.mI64);
    mF64.swap(other.mF64);
    mU8.swap(other.mU8);
    mPending.swap(other.mPending);
    other.Release();
}

size_t ArrayRec::Count() const {
    if (IsPending()) return mPending->Count();
    switch (kind) {
    case ArrayKind::Int32:
        return mI32.size();
    case ArrayKind::Int64:
        return mI64.size();
    case ArrayKind::Double:
        return mF64.size();
    case ArrayKind::UInt8:
        return mU8.size();
    }
    return 0;
}

const void* ArrayRec::Data() const {
    return const_cast<ArrayRec*>(this)->Data();
}

void* ArrayRec::Data() {
    Decode();
    switch (kind) {
    case ArrayKind::Int32:
        return mI32.data();
    case ArrayKind::Int64:
        return mI64.data();
    case ArrayKind::Double:
        return mF64.data();
    case ArrayKind::UInt8:
        return mU8.data();
    }
    return nullptr;
}

bool ArrayRec::ReadRange(size_t first, size_t count, void* out) const {
    const size_t n = Count();
    if (first > n || count > n - first) return false;
    if (count == 0) return true;
    if (IsPending() && kind == ArrayKind::Double) {
        mPending->ReadRange(first, count, static_cast<double*>(out), mF64);
        return true;
    }
    const size_t size = ArrayElementSize(kind);
    std::memcpy(out, static_cast<const uint8_t*>(Data()) + first * size, count * size);
    return true;
}

void* ArrayRec::Resize(size_t count) {
    Decode();
    mPending.reset();
    switch (kind) {
    case ArrayKind::Int32:
        mI32.resize(count);
        return mI32.data();
    case ArrayKind::Int64:
        mI64.resize(count);
        return mI64.data();
    case ArrayKind::Double:
        mF64.resize(count);
        return mF64.data();
    case ArrayKind::UInt8:
        mU8.resize(count);
        return mU8.data();
    }
    return nullptr;
}

void ArrayRec::Clear() {
    mPending.reset();
    mI32.clear();
    mI64.clear();
    mF64.clear();
    mU8.clear();
}

void ArrayRec::Release() {
    mPending.reset();
    std::vector<int32_t>().swap(mI32);
    std::vector<int64_t>().swap(mI64);
    std::vector<double>().swap(mF64);
    std::vector<uint8_t>().swap(mU8);
}
} // namespace detail

// ---------------------------------------------------------------- properties

QdxProperty QdxProperty::Create(QdxObject* object, const QdxDataType& type, const char* name,
                                const char* label) {
    if (!object || !name || !type.Valid()) return QdxProperty();
    QdxProperty existing = object->FindProperty(name);
    if (existing.IsValid()) return existing.Is(type) ? existing : QdxProperty();
    detail::PropertyRec rec;
    rec.name = name;
    rec.label = label ? label : "";
    rec.type = type;
    rec.value = detail::DefaultValue(type.GetType());
    rec.flags = QdxPropertyFlags::eAnimatable;
    object->mProperties.push_back(std::move(rec));
    return QdxProperty(object, static_cast<int>(object->mProperties.size()) - 1);
}

QdxProperty QdxProperty::Create(const QdxProperty& parent, const QdxDataType& type,
                                const char* name, const char* label) {
    return Create(parent.mObject, type, name, label);
}

bool QdxProperty::IsValid() const {
    return mObject && mIndex >= 0 && mIndex < static_cast<int>(mObject->mProperties.size());
}

QdxString QdxProperty::GetName() const {
    return IsValid() ? QdxString(mObject->mProperties[static_cast<size_t>(mIndex)].name)
                     : QdxString();
}

QdxString QdxProperty::GetLabel(bool returnNameIfEmpty) const {
    if (!IsValid()) return QdxString();
    const auto& p = mObject->mProperties[static_cast<size_t>(mIndex)];
    return QdxString(p.label.empty() && returnNameIfEmpty ? p.name : p.label);
}

void QdxProperty::SetLabel(const QdxString& label) {
    if (IsValid()) mObject->mProperties[static_cast<size_t>(mIndex)].label = label.Str();
}

QdxDataType QdxProperty::GetPropertyDataType() const {
    return IsValid() ? mObject->mProperties[static_cast<size_t>(mIndex)].type : QdxUndefinedDT;
}

bool QdxProperty::GetFlag(QdxPropertyFlags::EFlags flag) const {
    return IsValid() && (mObject->mProperties[static_cast<size_t>(mIndex)].flags & flag) != 0;
}

bool QdxProperty::ModifyFlag(QdxPropertyFlags::EFlags flag, bool value) {
    if (!IsValid()) return false;
    unsigned int& f = mObject->mProperties[static_cast<size_t>(mIndex)].flags;
    f = value ? (f | flag) : (f & ~static_cast<unsigned int>(flag));
    return true;
}

unsigned int QdxProperty::GetFlags() const {
    return IsValid() ? mObject->mProperties[static_cast<size_t>(mIndex)].flags : 0u;
}

void QdxProperty::SetFlags(unsigned int flags) {
    if (IsValid()) mObject->mProperties[static_cast<size_t>(mIndex)].flags = flags;
}

const detail::Value* QdxProperty::RawValue() const {
    return IsValid() ? &mObject->mProperties[static_cast<size_t>(mIndex)].value : nullptr;
}

detail::Value* QdxProperty::RawValue() {
    return IsValid() ? &mObject->mProperties[static_cast<size_t>(mIndex)].value : nullptr;
}

int QdxProperty::GetEnumCount() const {
    return IsValid() ? static_cast<int>(
                           mObject->mProperties[static_cast<size_t>(mIndex)].enumItems.size())
                     : 0;
}

int QdxProperty::AddEnumValue(const char* name) {
    if (!IsValid() || !Is(QdxEnumDT)) return -1;
    auto& items = mObject->mProperties[static_cast<size_t>(mIndex)].enumItems;
    items.emplace_back(name ? name : "");
    return static_cast<int>(items.size()) - 1;
}

const char* QdxProperty::GetEnumValue(int index) const {
    if (!IsValid()) return nullptr;
    const auto& items = mObject->mProperties[static_cast<size_t>(mIndex)].enumItems;
    return index >= 0 && static_cast<size_t>(index) < items.size()
               ? items[static_cast<size_t>(index)].c_str()
               : nullptr;
}

int QdxProperty::GetStringListCount() const {
    const detail::Value* v = RawValue();
    return v && std::holds_alternative<std::vector<std::string>>(*v)
               ? static_cast<int>(std::get<std::vector<std::string>>(*v).size())
               : 0;
}

const char* QdxProperty::GetStringListItem(int index) const {
    const detail::Value* v = RawValue();
    if (!v || !std::holds_alternative<std::vector<std::string>>(*v)) return nullptr;
    const auto& l = std::get<std::vector<std::string>>(*v);
    return index >= 0 && static_cast<size_t>(index) < l.size()
               ? l[static_cast<size_t>(index)].c_str()
               : nullptr;
}

bool QdxProperty::AddStringListItem(const char* item) {
    detail::Value* v = RawValue();
    if (!v || !std::holds_alternative<std::vector<std::string>>(*v)) return false;
    std::get<std::vector<std::string>>(*v).emplace_back(item ? item : "");
    return true;
}

int QdxProperty::GetSrcObjectCount(const QdxCriteria& criteria) const {
    if (!IsValid()) return 0;
    int n = 0;
    for (QdxObject* o : mObject->mProperties[static_cast<size_t>(mIndex)].srcObjects)
        if (criteria.Matches(o)) ++n;
    return n;
}

QdxObject* QdxProperty::GetSrcObject(const QdxCriteria& criteria, int index) const {
    if (!IsValid() || index < 0) return nullptr;
    for (QdxObject* o : mObject->mProperties[static_cast<size_t>(mIndex)].srcObjects)
        if (criteria.Matches(o) && index-- == 0) return o;
    return nullptr;
}

bool QdxProperty::ConnectSrcObject(QdxObject* object) {
    if (!IsValid() || !object || IsConnectedSrcObject(object)) return false;
    mObject->ConnectPropertySrc(object, mIndex);
    return true;
}

bool QdxProperty::DisconnectSrcObject(QdxObject* object) {
    return IsValid() && object && mObject->DisconnectPropertySrc(object, mIndex);
}

bool QdxProperty::DisconnectAllSrcObject() {
    if (!IsValid()) return false;
    auto srcs = mObject->mProperties[static_cast<size_t>(mIndex)].srcObjects;
    for (QdxObject* o : srcs)
        mObject->DisconnectPropertySrc(o, mIndex);
    return true;
}

bool QdxProperty::IsConnectedSrcObject(const QdxObject* object) const {
    if (!IsValid() || !object) return false;
    const auto& s = mObject->mProperties[static_cast<size_t>(mIndex)].srcObjects;
    if (object->mDst.size() < s.size()) {
        for (const auto& d : object->mDst)
            if (d.object == mObject && d.property == mIndex) return true;
        return false;
    }
    return std::find(s.begin(), s.end(), object) != s.end();
}

QdxProperty QdxProperty::GetFirstDescendent() const {
    if (!mObject || mObject->mProperties.empty()) return QdxProperty();
    if (mIndex >= 0) return QdxProperty(); // properties have no children
    return QdxProperty(mObject, 0);
}

QdxProperty QdxProperty::GetNextDescendent(const QdxProperty& current) const {
    if (!mObject || mIndex >= 0 || current.mObject != mObject) return QdxProperty();
    int next = current.mIndex + 1;
    return next < static_cast<int>(mObject->mProperties.size()) ? QdxProperty(mObject, next)
                                                                : QdxProperty();
}

QdxProperty QdxProperty::Find(const char* name, bool caseSensitive) const {
    return mObject ? mObject->FindProperty(name, caseSensitive) : QdxProperty();
}

// ---------------------------------------------------------------- objects

const QdxClassId QdxObject::ClassId("QdxObject", nullptr, nullptr);

QdxObject::QdxObject(QdxManager& manager, const char* name)
    : RootProperty(this, -1), mManager(&manager), mName(name ? name : "") {}

QdxObject::~QdxObject() = default;

QdxScene* QdxObject::GetScene() const {
    for (const auto& d : mDst)
        if (d.property < 0 && d.object->Is<QdxScene>()) return static_cast<QdxScene*>(d.object);
    return nullptr;
}

void QdxObject::Destroy(bool recursive) {
    if (!recursive) {
        mManager->Release(this);
        return;
    }
    // Collect the source closure first; connections may form cycles.
    std::vector<QdxObject*> order{this}, stack{this};
    std::set<QdxObject*> seen{this};
    while (!stack.empty()) {
        QdxObject* o = stack.back();
        stack.pop_back();
        for (QdxObject* s : o->mSrc)
            if (!s->Is<QdxScene>() && seen.insert(s).second) {
                order.push_back(s);
                stack.push_back(s);
            }
    }
    mManager->ReleaseAll(order);
}

QdxProperty QdxObject::FindProperty(const char* name, bool caseSensitive) const {
    if (!name) return QdxProperty();
    auto* self = const_cast<QdxObject*>(this);
    for (size_t i = 0; i < mProperties.size(); ++i) {
        const std::string& n = mProperties[i].name;
        bool eq = caseSensitive ? n == name : strcasecmp(n.c_str(), name) == 0;
        if (eq) return QdxProperty(self, static_cast<int>(i));
    }
    return QdxProperty();
}

QdxProperty QdxObject::GetFirstProperty() const {
    return RootProperty.GetFirstDescendent();
}

QdxProperty QdxObject::GetNextProperty(const QdxProperty& current) const {
    return RootProperty.GetNextDescendent(current);
}

QdxProperty QdxObject::GetPropertyAt(int index) const {
    if (index < 0 || index >= GetPropertyCount()) return QdxProperty();
    return QdxProperty(const_cast<QdxObject*>(this), index);
}

QdxProperty QdxObject::AddProperty(const QdxDataType& type, const char* name, detail::Value value,
                                   unsigned int flags) {
    detail::PropertyRec rec;
    rec.name = name;
    rec.type = type;
    rec.flags = flags;
    rec.value = value.index() == detail::StorageIndex(type.GetType())
                    ? std::move(value)
                    : detail::DefaultValue(type.GetType());
    mProperties.push_back(std::move(rec));
    return QdxProperty(this, static_cast<int>(mProperties.size()) - 1);
}

int QdxObject::AddEnumProperty(const char* name, int value,
                               std::initializer_list<const char*> items) {
    QdxProperty p = AddProperty(QdxEnumDT, name, value);
    for (const char* i : items)
        p.AddEnumValue(i);
    return p.GetIndex();
}

const std::vector<QdxObject*>& QdxObject::Matches(const QdxCriteria& criteria) const {
    if (criteria.MatchesAll()) return mSrc;
    if (mQueryVersion != mSrcVersion || !(mQueryCriteria == criteria)) {
        mQueryHits.clear();
        for (QdxObject* o : mSrc)
            if (criteria.Matches(o)) mQueryHits.push_back(o);
        mQueryCriteria = criteria;
        mQueryVersion = mSrcVersion;
    }
    return mQueryHits;
}

int QdxObject::GetSrcObjectCount(const QdxCriteria& criteria) const {
    return static_cast<int>(Matches(criteria).size());
}

QdxObject* QdxObject::GetSrcObject(const QdxCriteria& criteria, int index) const {
    const auto& hits = Matches(criteria);
    return index >= 0 && static_cast<size_t>(index) < hits.size() ? hits[static_cast<size_t>(index)]
                                                                  : nullptr;
}

int QdxObject::GetDstObjectCount(const QdxCriteria& criteria) const {
    int n = 0;
    for (const auto& d : mDst)
        if (d.property < 0 && criteria.Matches(d.object)) ++n;
    return n;
}

QdxObject* QdxObject::GetDstObject(const QdxCriteria& criteria, int index) const {
    if (index < 0) return nullptr;
    for (const auto& d : mDst)
        if (d.property < 0 && criteria.Matches(d.object) && index-- == 0) return d.object;
    return nullptr;
}

int QdxObject::GetDstPropertyCount() const {
    int n = 0;
    for (const auto& d : mDst)
        if (d.property >= 0) ++n;
    return n;
}

QdxProperty QdxObject::GetDstProperty(int index) const {
    if (index < 0) return QdxProperty();
    for (const auto& d : mDst)
        if (d.property >= 0 && index-- == 0) return QdxProperty(d.object, d.property);
    return QdxProperty();
}

bool QdxObject::ConnectSrcObject(QdxObject* object) {
    if (!object || object == this || IsConnectedSrcObject(object)) return false;
    AppendSrc(object);
    object->mDst.push_back({this, -1});
    return true;
}

void QdxObject::AppendSrc(QdxObject* object) {
    mSrc.push_back(object);
    // A query that was current stays current: the new source can only add a
    // hit at the end, so building a tree while counting children is linear.
    const bool current = mQueryVersion == mSrcVersion;
    ++mSrcVersion;
    if (current) {
        if (mQueryCriteria.Matches(object)) mQueryHits.push_back(object);
        mQueryVersion = mSrcVersion;
    }
}

bool QdxObject::DisconnectSrcObject(QdxObject* object) {
    // Searched from the back: the links made last are the cheapest to undo,
    // so a parent emptied from its last child down stays linear.
    auto rit = std::find(mSrc.rbegin(), mSrc.rend(), object);
    if (rit == mSrc.rend()) return false;
    mSrc.erase(std::next(rit).base());
    ++mSrcVersion;
    object->RemoveDstLink(this, -1);
    return true;
}

bool QdxObject::IsConnectedSrcObject(const QdxObject* object) const {
    if (!object) return false;
    // Search whichever side holds fewer links: parents with many children
    // stay cheap to extend.
    if (object->mDst.size() < mSrc.size()) {
        for (const auto& d : object->mDst)
            if (d.object == this && d.property < 0) return true;
        return false;
    }
    return std::find(mSrc.begin(), mSrc.end(), object) != mSrc.end();
}

bool QdxObject::DisconnectAllSrcObject() {
    auto srcs = mSrc;
    for (QdxObject* s : srcs)
        DisconnectSrcObject(s);
    return true;
}

bool QdxObject::DisconnectAllDstObject() {
    auto dsts = mDst;
    for (const auto& d : dsts) {
        if (d.property < 0)
            d.object->DisconnectSrcObject(this);
        else
            d.object->DisconnectPropertySrc(this, d.property);
    }
    return true;
}

void QdxObject::ConnectPropertySrc(QdxObject* src, int property) {
    mProperties[static_cast<size_t>(property)].srcObjects.push_back(src);
    src->mDst.push_back({this, property});
}

bool QdxObject::DisconnectPropertySrc(QdxObject* src, int property) {
    auto& s = mProperties[static_cast<size_t>(property)].srcObjects;
    auto it = std::find(s.begin(), s.end(), src);
    if (it == s.end()) return false;
    s.erase(it);
    src->RemoveDstLink(this, property);
    return true;
}

void QdxObject::RemoveDstLink(QdxObject* dst, int property) {
    for (auto it = mDst.begin(); it != mDst.end(); ++it)
        if (it->object == dst && it->property == property) {
            mDst.erase(it);
            return;
        }
}

detail::ArrayRec* QdxObject::FindArray(const char* name) {
    for (auto& a : mArrays)
        if (a.name == name) return &a;
    return nullptr;
}

const detail::ArrayRec* QdxObject::FindArray(const char* name) const {
    for (const auto& a : mArrays)
        if (a.name == name) return &a;
    return nullptr;
}

detail::ArrayRec& QdxObject::AddArray(const char* name, detail::ArrayKind kind) {
    mArrays.emplace_back();
    mArrays.back().name = name;
    mArrays.back().kind = kind;
    return mArrays.back();
}

int QdxObject::AddOwnArray(const char* name, detail::ArrayKind kind) {
    AddArray(name, kind);
    return static_cast<int>(mArrays.size()) - 1;
}

// ---------------------------------------------------------------- manager

QdxManager::QdxManager()
    : mRegistry(std::make_unique<QdxIOPluginRegistry>()),
      mArrayFaults(std::make_shared<detail::ArrayFaults>()) {}

std::vector<std::string> QdxManager::GetArrayFaults() const {
    return mArrayFaults->List();
}

QdxManager::~QdxManager() {
    mDestroying = true;
    // Objects are freed without unlinking: every link points inside this set.
    mObjects.clear();
}

QdxManager* QdxManager::Create() {
    return new QdxManager();
}

void QdxManager::Destroy() {
    delete this;
}

void QdxManager::GetFileFormatVersion(int& major, int& minor, int& revision) {
    major = 3;
    minor = 0;
    revision = 0;
}

const char* QdxManager::GetVersion() {
    return "Qdx SDK 1.0.0";
}

QdxIOPluginRegistry* QdxManager::GetIOPluginRegistry() const {
    return mRegistry.get();
}

QdxObject* QdxManager::CreateObject(const char* className, const char* name) {
    const QdxClassId* id = QdxClassId::Find(className);
    if (!id || id->IsAbstract()) return nullptr;
    QdxObject* o = id->GetFactory()(*this, name);
    AdoptObject(o);
    return o;
}

std::vector<std::string> QdxManager::GetRegisteredClassNames() {
    std::vector<std::string> names;
    for (const auto& entry : ClassRegistry())
        names.push_back(entry.first);
    return names;
}

void QdxManager::AdoptObject(QdxObject* object) {
    object->mManagerIndex = mObjects.size();
    mObjects.emplace_back(object);
}

void QdxManager::ReleaseAll(const std::vector<QdxObject*>& objects) {
    if (mDestroying) return;
    std::unordered_set<QdxObject*> doomed(objects.begin(), objects.end());
    auto eraseOne = [](std::vector<QdxObject*>& v, QdxObject* o) {
        auto it = std::find(v.begin(), v.end(), o);
        if (it != v.end()) v.erase(it);
    };
    for (QdxObject* o : objects) {
        if (o == mIOSettings) mIOSettings = nullptr;
        // Undo only the links to objects that stay.
        for (QdxObject* s : o->mSrc)
            if (!doomed.count(s)) s->RemoveDstLink(o, -1);
        for (size_t p = 0; p < o->mProperties.size(); ++p)
            for (QdxObject* s : o->mProperties[p].srcObjects)
                if (!doomed.count(s)) s->RemoveDstLink(o, static_cast<int>(p));
        for (const auto& d : o->mDst) {
            if (doomed.count(d.object)) continue;
            if (d.property < 0) {
                eraseOne(d.object->mSrc, o);
                ++d.object->mSrcVersion;
            } else
                eraseOne(d.object->mProperties[static_cast<size_t>(d.property)].srcObjects, o);
        }
    }
    for (QdxObject* o : objects) {
        size_t at = o->mManagerIndex;
        std::unique_ptr<QdxObject> doomedObject = std::move(mObjects[at]);
        if (at + 1 != mObjects.size()) {
            mObjects[at] = std::move(mObjects.back());
            mObjects[at]->mManagerIndex = at;
        }
        mObjects.pop_back();
    }
}

void QdxManager::Release(QdxObject* object) {
    if (mDestroying || !object) return;
    if (object == mIOSettings) mIOSettings = nullptr;
    object->DisconnectAllSrcObject();
    object->DisconnectAllDstObject();
    for (size_t p = 0; p < object->mProperties.size(); ++p) {
        auto srcs = object->mProperties[p].srcObjects;
        for (QdxObject* s : srcs)
            object->DisconnectPropertySrc(s, static_cast<int>(p));
    }
    size_t at = object->mManagerIndex;
    std::unique_ptr<QdxObject> doomed = std::move(mObjects[at]);
    if (at + 1 != mObjects.size()) {
        mObjects[at] = std::move(mObjects.back());
        mObjects[at]->mManagerIndex = at;
    }
    mObjects.pop_back();
}

} // namespace qdxsdk
