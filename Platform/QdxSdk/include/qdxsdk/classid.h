// Class ids: the run-time type of SDK objects, and criteria for connection
// queries.
#pragma once

namespace qdxsdk {

class QdxObject;
class QdxManager;

class QdxClassId {
public:
    using Factory = QdxObject* (*)(QdxManager& manager, const char* name);
    // Registers the class under name; factory is null for abstract classes.
    QdxClassId(const char* name, const QdxClassId* parent, Factory factory);
    QdxClassId(const QdxClassId&) = delete;
    QdxClassId& operator=(const QdxClassId&) = delete;

    const char* GetName() const { return mName; }
    const QdxClassId* GetParent() const { return mParent; }
    // True when this class is other or derives from it.
    bool Is(const QdxClassId& other) const;
    bool IsAbstract() const { return mFactory == nullptr; }
    Factory GetFactory() const { return mFactory; }
    // The registered class of that name, or null.
    static const QdxClassId* Find(const char* name);

private:
    const char* mName;
    const QdxClassId* mParent;
    Factory mFactory;
};

// Filter for connection queries; the default criteria match every object.
class QdxCriteria {
public:
    QdxCriteria() = default;
    static QdxCriteria ObjectType(const QdxClassId& classId) { return QdxCriteria(&classId); }
    static QdxCriteria ObjectTypeStrict(const QdxClassId& classId) {
        QdxCriteria c(&classId);
        c.mStrict = true;
        return c;
    }
    bool Matches(const QdxObject* object) const;
    bool MatchesAll() const { return mClassId == nullptr; }
    friend bool operator==(const QdxCriteria& a, const QdxCriteria& b) {
        return a.mClassId == b.mClassId && a.mStrict == b.mStrict;
    }

private:
    explicit QdxCriteria(const QdxClassId* id) : mClassId(id) {}
    const QdxClassId* mClassId = nullptr;
    bool mStrict = false;
};

} // namespace qdxsdk
