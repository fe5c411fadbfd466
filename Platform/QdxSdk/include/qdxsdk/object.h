// The object model: every SDK object is a class id, a name, typed
// properties, typed arrays and connections, owned by a manager.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "qdxsdk/classid.h"
#include "qdxsdk/property.h"
#include "qdxsdk/types.h"

namespace qdxsdk {

class QdxScene;
class QdxIOPluginRegistry;
class QdxIOSettings;

namespace detail {
struct PropertyRec {
    std::string name;
    std::string label;
    QdxDataType type;
    unsigned int flags = 0;
    Value value;
    std::vector<std::string> enumItems;
    std::vector<QdxObject*> srcObjects;
};

// Element kinds of arrays. Numbers are part of the file formats.
enum class ArrayKind : uint8_t { Int32 = 1, Int64 = 2, Double = 3, UInt8 = 4 };
size_t ArrayElementSize(ArrayKind kind);

class PendingArray;
class ArrayFaults;

// An array of one element kind. A large array of doubles read from a binary
// file may stay in that file until it is used (a PendingArray): Count()
// answers without reading it, ReadRange() streams a part of it, and every
// accessor that hands out element memory decodes the whole array first,
// once, even when several threads ask at the same time.
class ArrayRec {
public:
    std::string name;
    ArrayKind kind = ArrayKind::Double;

    ArrayRec();
    ArrayRec(std::string arrayName, ArrayKind arrayKind);
    ~ArrayRec();
    // A copy holds the decoded elements.
    ArrayRec(const ArrayRec& other);
    ArrayRec& operator=(const ArrayRec& other);
    ArrayRec(ArrayRec&& other) noexcept;
    ArrayRec& operator=(ArrayRec&& other) noexcept;

    size_t Count() const;
    const void* Data() const;
    void* Data();
    void* Resize(size_t count); // returns the data pointer
    void Clear();
    // Empties the array and frees its storage (and its hold on a file).
    void Release();
    // The element vector of type T (int32_t, int64_t, double or uint8_t).
    template <class T> std::vector<T>& Elements() {
        Decode();
        return Vector<T>();
    }
    template <class T> const std::vector<T>& Elements() const {
        Decode();
        return const_cast<ArrayRec*>(this)->Vector<T>();
    }
    // Copies elements [first, first + count) into out, as bytes of the
    // element kind; false when the range does not lie inside the array. An
    // array still in its file is streamed, not decoded whole.
    bool ReadRange(size_t first, size_t count, void* out) const;
    // True while the elements are still in the file.
    bool IsPending() const;
    // Takes the elements (decoded or pending) of other, which is left empty;
    // name and kind stay.
    void TakeElements(ArrayRec& other);
    // Used by the binary reader: the elements stay in a file until used.
    void SetPending(std::unique_ptr<PendingArray> pending);
    PendingArray* Pending() const { return mPending.get(); }

private:
    template <class T> std::vector<T>& Vector() {
        if constexpr (std::is_same_v<T, int32_t>)
            return mI32;
        else if constexpr (std::is_same_v<T, int64_t>)
            return mI64;
        else if constexpr (std::is_same_v<T, double>)
            return mF64;
        else {
            static_assert(std::is_same_v<T, uint8_t>, "arrays hold int32, int64, double or uint8");
            return mU8;
        }
    }
    // Decodes a pending array once; cheap when there is nothing to decode.
    void Decode() const {
        if (mPending) DecodePending();
    }
    void DecodePending() const;

    std::vector<int32_t> mI32;
    std::vector<int64_t> mI64;
    std::vector<double> mF64;
    std::vector<uint8_t> mU8;
    std::unique_ptr<PendingArray> mPending;
};

struct DstLink {
    QdxObject* object;
    int property; // -1: the object itself
};
} // namespace detail

#define QDX_DECLARE_OBJECT(Class)                                                                  \
public:                                                                                            \
    static const QdxClassId ClassId;                                                               \
    const QdxClassId& GetClassId() const override {                                                \
        return ClassId;                                                                            \
    }                                                                                              \
    static Class* Create(QdxManager* manager, const char* name);                                   \
    static Class* Create(QdxObject* container, const char* name);                                  \
    friend struct QdxObjectFactory<Class>;                                                         \
                                                                                                   \
protected:                                                                                         \
    Class(QdxManager& manager, const char* name);

#define QDX_DECLARE_ABSTRACT(Class)                                                                \
public:                                                                                            \
    static const QdxClassId ClassId;                                                               \
    const QdxClassId& GetClassId() const override {                                                \
        return ClassId;                                                                            \
    }                                                                                              \
                                                                                                   \
protected:                                                                                         \
    Class(QdxManager& manager, const char* name);

template <class T> struct QdxObjectFactory;

class QdxObject {
public:
    static const QdxClassId ClassId;
    virtual const QdxClassId& GetClassId() const { return ClassId; }
    virtual ~QdxObject();
    QdxObject(const QdxObject&) = delete;
    QdxObject& operator=(const QdxObject&) = delete;

    template <class T> bool Is() const { return GetClassId().Is(T::ClassId); }

    const char* GetName() const { return mName.c_str(); }
    const char* GetInitialName() const { return mName.c_str(); }
    void SetName(const char* name) { mName = name ? name : ""; }
    QdxManager* GetQdxManager() const { return mManager; }
    // The scene this object belongs to, or null.
    QdxScene* GetScene() const;
    // Frees the object (and, when recursive, its source objects) with all
    // its connections.
    void Destroy(bool recursive = false);

    // Properties.
    QdxProperty FindProperty(const char* name, bool caseSensitive = true) const;
    QdxProperty GetFirstProperty() const;
    QdxProperty GetNextProperty(const QdxProperty& current) const;
    int GetPropertyCount() const { return static_cast<int>(mProperties.size()); }
    QdxProperty GetPropertyAt(int index) const;
    QdxProperty RootProperty; // index -1: parent of every property

    // Connections: source objects connected to this object, and the objects
    // (or properties of objects) this object is connected to.
    int GetSrcObjectCount(const QdxCriteria& criteria = QdxCriteria()) const;
    QdxObject* GetSrcObject(const QdxCriteria& criteria, int index = 0) const;
    QdxObject* GetSrcObject(int index = 0) const { return GetSrcObject(QdxCriteria(), index); }
    template <class T> int GetSrcObjectCount() const {
        return GetSrcObjectCount(QdxCriteria::ObjectType(T::ClassId));
    }
    template <class T> T* GetSrcObject(int index = 0) const {
        return static_cast<T*>(GetSrcObject(QdxCriteria::ObjectType(T::ClassId), index));
    }
    int GetDstObjectCount(const QdxCriteria& criteria = QdxCriteria()) const;
    QdxObject* GetDstObject(const QdxCriteria& criteria, int index = 0) const;
    QdxObject* GetDstObject(int index = 0) const { return GetDstObject(QdxCriteria(), index); }
    template <class T> int GetDstObjectCount() const {
        return GetDstObjectCount(QdxCriteria::ObjectType(T::ClassId));
    }
    template <class T> T* GetDstObject(int index = 0) const {
        return static_cast<T*>(GetDstObject(QdxCriteria::ObjectType(T::ClassId), index));
    }
    int GetDstPropertyCount() const;
    QdxProperty GetDstProperty(int index = 0) const;
    bool ConnectSrcObject(QdxObject* object);
    bool ConnectDstObject(QdxObject* object) { return object && object->ConnectSrcObject(this); }
    bool DisconnectSrcObject(QdxObject* object);
    bool DisconnectDstObject(QdxObject* object) {
        return object && object->DisconnectSrcObject(this);
    }
    bool IsConnectedSrcObject(const QdxObject* object) const;
    bool DisconnectAllSrcObject();
    bool DisconnectAllDstObject();

    // Generic storage, used by the file formats and by the classes.
    std::vector<detail::PropertyRec>& Properties() { return mProperties; }
    const std::vector<detail::PropertyRec>& Properties() const { return mProperties; }
    std::vector<detail::ArrayRec>& Arrays() { return mArrays; }
    const std::vector<detail::ArrayRec>& Arrays() const { return mArrays; }
    // A class's own array by the index AddArray gave it, and its elements.
    detail::ArrayRec& ArrayAt(int index) { return mArrays[static_cast<size_t>(index)]; }
    const detail::ArrayRec& ArrayAt(int index) const { return mArrays[static_cast<size_t>(index)]; }
    template <class T> std::vector<T>& ArrayOf(int index) {
        return ArrayAt(index).template Elements<T>();
    }
    template <class T> const std::vector<T>& ArrayOf(int index) const {
        return ArrayAt(index).template Elements<T>();
    }
    const std::vector<QdxObject*>& SrcObjects() const { return mSrc; }
    const std::vector<detail::DstLink>& DstLinks() const { return mDst; }
    detail::ArrayRec* FindArray(const char* name);
    const detail::ArrayRec* FindArray(const char* name) const;
    detail::ArrayRec& AddArray(const char* name, detail::ArrayKind kind);
    // Called by the writers before an object is serialised and by the
    // readers after all objects and connections are in place.
    virtual void PrepareForWrite() {}
    virtual bool FinishRead(QdxStatus& status) { return true; }

protected:
    QdxObject(QdxManager& manager, const char* name);
    // Adds a built-in property and returns its handle.
    QdxProperty AddProperty(const QdxDataType& type, const char* name, detail::Value value,
                            unsigned int flags = QdxPropertyFlags::eAnimatable);
    int AddEnumProperty(const char* name, int value, std::initializer_list<const char*> items);
    // Adds a class's own array and returns the index ArrayAt and ArrayOf
    // take; classes add theirs in their constructors, so the indices are
    // fixed per class.
    int AddOwnArray(const char* name, detail::ArrayKind kind);

private:
    friend class QdxManager;
    friend class QdxProperty;
    friend class QdxScene;
    void ConnectPropertySrc(QdxObject* src, int property);
    bool DisconnectPropertySrc(QdxObject* src, int property);
    void RemoveDstLink(QdxObject* dst, int property);

    QdxManager* mManager;
    size_t mManagerIndex = 0;
    std::string mName;
    std::vector<detail::PropertyRec> mProperties;
    std::vector<detail::ArrayRec> mArrays;
    std::vector<QdxObject*> mSrc;
    // Typed source queries (children, materials, ...) repeat while callers
    // walk them by index; the last query's matches are kept until the
    // sources change (mSrcVersion).
    uint64_t mSrcVersion = 0;
    mutable uint64_t mQueryVersion = ~uint64_t(0);
    mutable QdxCriteria mQueryCriteria;
    mutable std::vector<QdxObject*> mQueryHits;
    const std::vector<QdxObject*>& Matches(const QdxCriteria& criteria) const;
    void AppendSrc(QdxObject* object);
    std::vector<detail::DstLink> mDst;
};

template <class T> T* QdxCast(QdxObject* object) {
    return object && object->Is<T>() ? static_cast<T*>(object) : nullptr;
}
template <class T> const T* QdxCast(const QdxObject* object) {
    return object && object->Is<T>() ? static_cast<const T*>(object) : nullptr;
}

// Owns every object. Destroying the manager frees them all.
class QdxManager {
public:
    static QdxManager* Create();
    void Destroy();
    QdxManager(const QdxManager&) = delete;
    QdxManager& operator=(const QdxManager&) = delete;

    // Version of the newest file format this SDK writes.
    static void GetFileFormatVersion(int& major, int& minor, int& revision);
    static const char* GetVersion();
    QdxIOPluginRegistry* GetIOPluginRegistry() const;
    void SetIOSettings(QdxIOSettings* settings) { mIOSettings = settings; }
    QdxIOSettings* GetIOSettings() const { return mIOSettings; }

    int GetObjectCount() const { return static_cast<int>(mObjects.size()); }
    // Creates an object of a registered class by class name (null for
    // unknown or abstract classes).
    QdxObject* CreateObject(const char* className, const char* name);
    // Names of every registered class (abstract ones included), sorted.
    static std::vector<std::string> GetRegisteredClassNames();
    // Messages about arrays that stayed in their file and could not be
    // decoded when first used (the file changed, or its data is broken):
    // their values read as zeros. Oldest first.
    std::vector<std::string> GetArrayFaults() const;
    // The list the readers attach arrays that stay in their file to.
    const std::shared_ptr<detail::ArrayFaults>& ArrayFaultLog() const { return mArrayFaults; }
    template <class T> T* Adopt(T* object) {
        AdoptObject(object);
        return object;
    }

private:
    friend class QdxScene;
    QdxManager();
    ~QdxManager();
    friend class QdxObject;
    void AdoptObject(QdxObject* object);
    void Release(QdxObject* object);
    // Frees several objects at once: links among them are not undone one by
    // one, so freeing a large scene stays linear.
    void ReleaseAll(const std::vector<QdxObject*>& objects);

    std::vector<std::unique_ptr<QdxObject>> mObjects;
    std::unique_ptr<QdxIOPluginRegistry> mRegistry;
    QdxIOSettings* mIOSettings = nullptr;
    std::shared_ptr<detail::ArrayFaults> mArrayFaults;
    bool mDestroying = false;
};

template <class T> struct QdxObjectFactory {
    static T* Make(QdxManager& manager, const char* name) { return new T(manager, name); }
};

} // namespace qdxsdk
