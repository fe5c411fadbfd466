// Internal helpers shared by the SDK's sources.
#pragma once

#include "qdxsdk/object.h"

namespace qdxsdk::detail {
// Makes object a member of container's scene (container itself when it is
// a scene).
void JoinSceneOf(QdxObject* container, QdxObject* object);
} // namespace qdxsdk::detail

#define QDX_IMPLEMENT_OBJECT(Class, Parent, Name)                                                  \
    const QdxClassId Class::ClassId(Name, &Parent::ClassId,                                        \
                                    [](QdxManager& m, const char* n) -> QdxObject* {               \
                                        return QdxObjectFactory<Class>::Make(m, n);                \
                                    });                                                            \
    Class* Class::Create(QdxManager* m, const char* n) {                                           \
        return m ? m->Adopt(QdxObjectFactory<Class>::Make(*m, n)) : nullptr;                       \
    }                                                                                              \
    Class* Class::Create(QdxObject* c, const char* n) {                                            \
        if (!c) return nullptr;                                                                    \
        Class* o = Create(c->GetQdxManager(), n);                                                  \
        detail::JoinSceneOf(c, o);                                                                 \
        return o;                                                                                  \
    }

#define QDX_IMPLEMENT_ABSTRACT(Class, Parent, Name)                                                \
    const QdxClassId Class::ClassId(Name, &Parent::ClassId, nullptr);
