// IO settings: options addressed by path.
#include "impl.h"
#include "qdxsdk/io.h"

namespace qdxsdk {

QDX_IMPLEMENT_OBJECT(QdxIOSettings, QdxObject, "QdxIOSettings")
QdxIOSettings::QdxIOSettings(QdxManager& m, const char* name) : QdxObject(m, name) {}

bool QdxIOSettings::SetBoolProp(const char* path, bool value) {
    QdxProperty p = QdxProperty::Create(this, QdxBoolDT, path);
    return p.IsValid() && p.Set(value);
}

bool QdxIOSettings::GetBoolProp(const char* path, bool defaultValue) const {
    QdxProperty p = FindProperty(path);
    return p.IsValid() && p.Is(QdxBoolDT) ? p.Get<bool>() : defaultValue;
}

} // namespace qdxsdk
