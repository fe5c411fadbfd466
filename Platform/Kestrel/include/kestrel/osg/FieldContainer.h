#pragma once
// Field containers: the reference-counted objects of the scene graph.
//
// Every object of the scene graph derives from FieldContainer and is reached
// through an FCPtr<T> handle. Handles are reference counted (copying one is an
// atomic increment), compare by identity, and may be null; osg::NullFC is the
// null handle of every type. Objects are made only by their class's create().
//
// Each container has a process-unique id, a type (getType(), with the class
// name and the parent type), and a name. Setters record the bits of the
// fields they write on the current change list (see ChangeList.h); code that
// edits a field through an edit...() accessor records the change itself with
// changed(mask) or osg::recordChange(ptr, mask).
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

#include <kestrel/osg/FieldContainerType.h>
#include <kestrel/osg/Types.h>

namespace osg {

struct NullFCType {
    constexpr bool operator==(const NullFCType&) const { return true; }
};
inline constexpr NullFCType NullFC{};

class FieldContainer;

template <class T> class FCPtr {
public:
    using ObjectType = T;

    FCPtr() = default;
    FCPtr(NullFCType) {}
    explicit FCPtr(std::shared_ptr<T> p) : _p(std::move(p)) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    FCPtr(const FCPtr<U>& o) : _p(o.shared()) {}

    T* operator->() const { return _p.get(); }
    T& operator*() const { return *_p; }
    T* get() const { return _p.get(); }
    const std::shared_ptr<T>& shared() const { return _p; }
    explicit operator bool() const { return _p != nullptr; }
    bool isNull() const { return _p == nullptr; }

    template <class U> bool operator==(const FCPtr<U>& o) const {
        return static_cast<const void*>(get()) == static_cast<const void*>(o.get());
    }
    bool operator==(NullFCType) const { return _p == nullptr; }
    template <class U> bool operator<(const FCPtr<U>& o) const {
        return static_cast<const void*>(get()) < static_cast<const void*>(o.get());
    }

    // Checked down-cast: null when o is null or not a T.
    template <class U> static FCPtr dcast(const FCPtr<U>& o) {
        return FCPtr(std::dynamic_pointer_cast<T>(o.shared()));
    }

private:
    std::shared_ptr<T> _p;
};

// dcast<T>(ptr): checked down-cast of a handle.
template <class T, class U> FCPtr<T> dcast(const FCPtr<U>& p) {
    return FCPtr<T>::dcast(p);
}

using FieldContainerPtr = FCPtr<FieldContainer>;

class FieldContainer : public std::enable_shared_from_this<FieldContainer> {
public:
    static constexpr BitVector NameFieldMask = 1ull << 0;
    static constexpr BitVector AllFieldsMask = ~0ull;

    FieldContainer();
    FieldContainer(const FieldContainer& o);
    FieldContainer& operator=(const FieldContainer&) = delete;
    virtual ~FieldContainer();

    static const FieldContainerType& getClassType();
    virtual const FieldContainerType& getType() const;
    const char* getTypeName() const { return getType().getName(); }
    // A copy of this object with its fields; handles in fields are shared.
    virtual FieldContainerPtr shallowCopy() const;

    UInt32 getId() const { return _id; }
    const std::string& getName() const { return _name; }
    void setName(const std::string& name);

    // Records the given field bits of this object on the current change list.
    void changed(BitVector mask) const;

protected:
    template <class T> FCPtr<T> selfPtr() {
        return FCPtr<T>(std::static_pointer_cast<T>(shared_from_this()));
    }
    template <class T> FCPtr<T> selfPtr() const {
        return FCPtr<T>(
            std::const_pointer_cast<T>(std::static_pointer_cast<const T>(shared_from_this())));
    }

private:
    UInt32 _id;
    std::string _name;
};

// Records a change of ptr's fields (no-op for a null handle).
template <class T> void recordChange(const FCPtr<T>& ptr, BitVector mask) {
    if (ptr) ptr->changed(mask);
}

// The handle of an object whose raw pointer is known (null for nullptr).
template <class T> FCPtr<T> getPtr(T* raw) {
    if (!raw) return FCPtr<T>();
    return FCPtr<T>(std::static_pointer_cast<T>(raw->shared_from_this()));
}

} // namespace osg

template <class T> struct std::hash<osg::FCPtr<T>> {
    std::size_t operator()(const osg::FCPtr<T>& p) const noexcept {
        return std::hash<const void*>()(p.get());
    }
};

// Declares the type machinery of a container class: Ptr, create(), types and
// copying. Use inside the public section of the class.
#define KS_FIELD_CONTAINER_DECL(Class, Parent)                                                     \
public:                                                                                            \
    using Ptr = ::osg::FCPtr<Class>;                                                               \
    using Inherited = Parent;                                                                      \
    static Ptr create();                                                                           \
    static const ::osg::FieldContainerType& getClassType();                                        \
    const ::osg::FieldContainerType& getType() const override;                                     \
    ::osg::FieldContainerPtr shallowCopy() const override;

#define KS_FIELD_CONTAINER_IMPL(Class)                                                             \
    Class::Ptr Class::create() {                                                                   \
        return Ptr(std::make_shared<Class>());                                                     \
    }                                                                                              \
    const ::osg::FieldContainerType& Class::getClassType() {                                       \
        static const ::osg::FieldContainerType t(#Class, &Inherited::getClassType());              \
        return t;                                                                                  \
    }                                                                                              \
    const ::osg::FieldContainerType& Class::getType() const {                                      \
        return getClassType();                                                                     \
    }                                                                                              \
    ::osg::FieldContainerPtr Class::shallowCopy() const {                                          \
        return ::osg::FieldContainerPtr(std::make_shared<Class>(*this));                           \
    }

// Declares Ptr typedefs and the XBase alias under which create() and the
// setters are also reachable.
#define KS_FC_TYPEDEFS(Class)                                                                      \
    class Class;                                                                                   \
    using Class##Ptr = ::osg::FCPtr<Class>;                                                        \
    using Class##Base = Class;
