#include <mutex>
#include <vector>

#include <kestrel/ksMessage.h>
#include <kestrel/ksOpenSGUtils.h>

bool ksMessage::getBool(const std::string& key, bool defaultValue) const {
    auto it = _entries.find(key);
    if (it == _entries.end()) return defaultValue;
    if (auto b = std::get_if<bool>(&it->second)) return *b;
    if (auto i = std::get_if<long long>(&it->second)) return *i != 0;
    return defaultValue;
}

long long ksMessage::getInt(const std::string& key, long long defaultValue) const {
    auto it = _entries.find(key);
    if (it == _entries.end()) return defaultValue;
    if (auto i = std::get_if<long long>(&it->second)) return *i;
    if (auto d = std::get_if<double>(&it->second)) return static_cast<long long>(*d);
    return defaultValue;
}

double ksMessage::getDouble(const std::string& key, double defaultValue) const {
    auto it = _entries.find(key);
    if (it == _entries.end()) return defaultValue;
    if (auto d = std::get_if<double>(&it->second)) return *d;
    if (auto i = std::get_if<long long>(&it->second)) return static_cast<double>(*i);
    return defaultValue;
}

std::string ksMessage::getString(const std::string& key, const std::string& defaultValue) const {
    auto it = _entries.find(key);
    if (it == _entries.end()) return defaultValue;
    if (auto s = std::get_if<std::string>(&it->second)) return *s;
    return defaultValue;
}
