#include <cctype>
#include <cstdlib>

#include <kestrel/ksString.h>

namespace {
struct Item {
    std::string key, value;
    bool hasValue = false;
};

// Finds key among the comma-separated items (exact, case-sensitive key).
bool findItem(const std::string& options, const std::string& key, Item& out) {
    std::string k = ksString::trim(key);
    if (!k.empty() && k.back() == '=') k.pop_back();
    for (const std::string& raw : ksString::split(options, ',')) {
        std::size_t eq = raw.find('=');
        Item it;
        it.key = ksString::trim(eq == std::string::npos ? raw : raw.substr(0, eq));
        if (it.key != k) continue;
        if (eq != std::string::npos) {
            it.value = ksString::trim(raw.substr(eq + 1));
            it.hasValue = true;
        }
        out = it;
        return true;
    }
    return false;
}
} // namespace

std::string ksString::trim(const std::string& text) {
    std::size_t b = 0, e = text.size();
    while (b < e && std::isspace(static_cast<unsigned char>(text[b])))
        ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(text[e - 1])))
        --e;
    return text.substr(b, e - b);
}

std::string ksString::toLower(const std::string& text) {
    std::string r = text;
    for (char& c : r)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return r;
}

std::vector<std::string> ksString::split(const std::string& text, char delimiter) {
    std::vector<std::string> out;
    std::size_t start = 0;
    while (true) {
        std::size_t at = text.find(delimiter, start);
        out.push_back(text.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) break;
        start = at + 1;
    }
    return out;
}

bool ksString::endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool ksString::startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string ksString::replace(const std::string& text, const std::string& from,
                              const std::string& to) {
    if (from.empty()) return text;
    std::string out;
    std::size_t start = 0;
    while (true) {
        std::size_t at = text.find(from, start);
        if (at == std::string::npos) break;
        out.append(text, start, at - start);
        out += to;
        start = at + from.size();
    }
    out.append(text, start, std::string::npos);
    return out;
}

bool ksString::toBool(const std::string& word) {
    std::string w = toLower(trim(word));
    return w == "true" || w == "1" || w == "yes" || w == "on";
}

bool ksString::hasOption(const std::string& options, const std::string& key) {
    Item it;
    return findItem(options, key, it);
}

bool ksString::getBoolOption(const std::string& options, const std::string& key,
                             bool defaultValue) {
    Item it;
    if (!findItem(options, key, it)) return defaultValue;
    return it.hasValue ? toBool(it.value) : true;
}

std::string ksString::getStringOption(const std::string& options, const std::string& key) {
    Item it;
    return findItem(options, key, it) ? it.value : std::string();
}

std::string ksString::getStringOption(const std::string& text) {
    return trim(text.substr(0, text.find(',')));
}

int ksString::getIntOption(const std::string& options, const std::string& key, int defaultValue) {
    Item it;
    if (!findItem(options, key, it) || it.value.empty()) return defaultValue;
    char* end = nullptr;
    long v = std::strtol(it.value.c_str(), &end, 10);
    return end && *end == '\0' ? static_cast<int>(v) : defaultValue;
}

double ksString::getDoubleOption(const std::string& options, const std::string& key,
                                 double defaultValue) {
    Item it;
    if (!findItem(options, key, it) || it.value.empty()) return defaultValue;
    char* end = nullptr;
    double v = std::strtod(it.value.c_str(), &end);
    return end && *end == '\0' ? v : defaultValue;
}
