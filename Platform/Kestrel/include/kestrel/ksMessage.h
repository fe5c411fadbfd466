#pragma once
#include <functional>
#include <map>
#include <string>
#include <variant>
#include <vector>

class ksMessage {
public:
    using Value = std::variant<bool, long long, double, std::string>;

    void set(const std::string& key, bool v) { _entries[key] = v; }
    void set(const std::string& key, int v) { _entries[key] = static_cast<long long>(v); }
    void set(const std::string& key, long long v) { _entries[key] = v; }
    void set(const std::string& key, double v) { _entries[key] = v; }
    void set(const std::string& key, const std::string& v) { _entries[key] = v; }
    void set(const std::string& key, const char* v) { _entries[key] = std::string(v); }

    bool has(const std::string& key) const { return _entries.count(key) != 0; }
    // Typed reads; defaultValue when absent or of another type (integers
    // and doubles convert into each other).
    bool getBool(const std::string& key, bool defaultValue = false) const;
    long long getInt(const std::string& key, long long defaultValue = 0) const;
    double getDouble(const std::string& key, double defaultValue = 0.0) const;
    std::string getString(const std::string& key, const std::string& defaultValue = "") const;
    const std::map<std::string, Value>& entries() const { return _entries; }

private:
    std::map<std::string, Value> _entries;
};
