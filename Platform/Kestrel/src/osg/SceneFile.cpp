#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include <kestrel/osg/SceneFileHandler.h>

namespace osg {

namespace {
std::string normSuffix(const char* s) {
    std::string r = s ? s : "";
    if (!r.empty() && r[0] == '.') r.erase(0, 1);
    for (char& c : r)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return r;
}

// Writes data beside the target and renames it into place, so that readers
// never see a half-written file and a failure leaves an existing file as it
// was.
bool replaceFile(const char* fileName, const std::string& data) {
    const std::string tmp = std::string(fileName) + ".tmp" + std::to_string(::getpid());
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        out.write(data.data(), static_cast<std::streamsize>(data.size()));
        out.flush();
        if (!out) {
            out.close();
            std::remove(tmp.c_str());
            return false;
        }
    }
    if (std::rename(tmp.c_str(), fileName) != 0) {
        std::remove(tmp.c_str());
        return false;
    }
    return true;
}
} // namespace

SceneFileType::SceneFileType(const char* suffixArray[], UInt16 suffixByteCount, bool override,
                             UInt32 overridePriority, UInt32 flags)
    : _override(override), _priority(overridePriority), _flags(flags) {
    std::size_t n = suffixByteCount / sizeof(const char*);
    for (std::size_t i = 0; i < n && suffixArray; ++i)
        if (suffixArray[i]) _suffixes.emplace_back(suffixArray[i]);
    SceneFileHandler::the().addSceneFileType(*this);
}

SceneFileType::~SceneFileType() {
    SceneFileHandler::the().subSceneFileType(*this);
}

NodePtr SceneFileType::read(std::istream&, const char*) const {
    return NodePtr();
}
bool SceneFileType::write(const NodePtr&, std::ostream&, const char*) const {
    return false;
}

NodePtr SceneFileType::readFile(const char* fileName) const {
    if (!fileName) return NodePtr();
    std::ifstream in(fileName, std::ios::binary);
    if (!in) return NodePtr();
    return read(in, fileName);
}

bool SceneFileType::writeFile(const NodePtr& node, const char* fileName) const {
    if (!fileName) return false;
    // Types that write by file name leave the stream empty and own the file
    // themselves. What a type puts into the stream reaches the file only
    // after the whole write succeeded.
    std::ostringstream buffer(std::ios::binary);
    if (!write(node, buffer, fileName)) return false;
    if (buffer.tellp() <= 0) return true;
    return replaceFile(fileName, buffer.str());
}

SceneFileHandler& SceneFileHandler::the() {
    // Never destroyed: plug-in modules unregister from their own static
    // destructors, which may run after ours.
    static SceneFileHandler* handler = new SceneFileHandler();
    return *handler;
}

bool SceneFileHandler::addSceneFileType(SceneFileType& type) {
    if (std::find(_types.begin(), _types.end(), &type) != _types.end()) return false;
    _types.push_back(&type);
    bool tookAny = false;
    for (const auto& s : type.suffixList()) {
        std::string key = normSuffix(s.c_str());
        if (key.empty()) continue;
        auto it = _bySuffix.find(key);
        if (it == _bySuffix.end()) {
            _bySuffix[key] = &type;
            tookAny = true;
        } else if (type.doOverride() &&
                   type.getOverridePriority() > it->second->getOverridePriority()) {
            it->second = &type;
            tookAny = true;
        }
    }
    return tookAny;
}

void SceneFileHandler::subSceneFileType(SceneFileType& type) {
    _types.erase(std::remove(_types.begin(), _types.end(), &type), _types.end());
    // Give the suffixes of the removed type back to the remaining types.
    std::vector<SceneFileType*> types;
    types.swap(_types);
    _bySuffix.clear();
    for (SceneFileType* t : types)
        addSceneFileType(*t);
}

SceneFileType* SceneFileHandler::getFileType(const char* suffix) const {
    auto it = _bySuffix.find(normSuffix(suffix));
    return it == _bySuffix.end() ? nullptr : it->second;
}

SceneFileType* SceneFileHandler::getFileTypeForFile(const char* fileName) const {
    if (!fileName) return nullptr;
    std::string f = fileName;
    std::size_t slash = f.find_last_of("/\\");
    std::string last = slash == std::string::npos ? f : f.substr(slash + 1);
    std::size_t dot = last.find_last_of('.');
    if (dot == std::string::npos || dot + 1 >= last.size()) return nullptr;
    return getFileType(last.substr(dot + 1).c_str());
}

std::vector<SceneFileType*> SceneFileHandler::getFileTypes() const {
    return _types;
}

const char* SceneFileHandler::getOptions(const char* suffix) const {
    auto it = _options.find(suffix ? suffix : "");
    return it == _options.end() ? nullptr : it->second.c_str();
}

void SceneFileHandler::setOptions(const char* suffix, const char* options) {
    std::string key = suffix ? suffix : "";
    if (options)
        _options[key] = options;
    else
        _options.erase(key);
}

void SceneFileHandler::clearOptions() {
    _options.clear();
}

NodePtr SceneFileHandler::read(const char* fileName) {
    _lastError.clear();
    SceneFileType* type = getFileTypeForFile(fileName);
    if (!type || !type->canRead()) {
        _lastError = std::string("no plug-in reads this suffix: ") + (fileName ? fileName : "");
        return NodePtr();
    }
    try {
        std::ifstream probe(fileName, std::ios::binary);
        if (!probe) {
            _lastError = std::string("cannot open ") + fileName;
            return NodePtr();
        }
        probe.close();
        NodePtr n = type->readFile(fileName);
        if (!n) _lastError = std::string(type->getName()) + " could not read " + fileName;
        return n;
    } catch (const std::exception& e) {
        _lastError = std::string(type->getName()) + " failed: " + e.what();
    } catch (...) {
        _lastError = std::string(type->getName()) + " failed";
    }
    return NodePtr();
}

bool SceneFileHandler::write(const NodePtr& node, const char* fileName) {
    _lastError.clear();
    if (!node) {
        _lastError = "nothing to write";
        return false;
    }
    SceneFileType* type = getFileTypeForFile(fileName);
    if (!type || !type->canWrite()) {
        _lastError = std::string("no plug-in writes this suffix: ") + (fileName ? fileName : "");
        return false;
    }
    try {
        if (type->writeFile(node, fileName)) return true;
        _lastError = std::string(type->getName()) + " could not write " + fileName;
    } catch (const std::exception& e) {
        _lastError = std::string(type->getName()) + " failed: " + e.what();
    } catch (...) {
        _lastError = std::string(type->getName()) + " failed";
    }
    return false;
}

UInt32 SceneFileHandler::addReadProgressCallback(ProgressCallback cb) {
    _callbacks.push_back(Callback{_nextId, false, std::move(cb)});
    return _nextId++;
}

UInt32 SceneFileHandler::addWriteProgressCallback(ProgressCallback cb) {
    _callbacks.push_back(Callback{_nextId, true, std::move(cb)});
    return _nextId++;
}

void SceneFileHandler::removeProgressCallback(UInt32 id) {
    _callbacks.erase(std::remove_if(_callbacks.begin(), _callbacks.end(),
                                    [&](const Callback& c) { return c.id == id; }),
                     _callbacks.end());
}

void SceneFileHandler::report(bool write, UInt32 percent) {
    percent = std::min<UInt32>(percent, 100);
    for (const auto& c : _callbacks)
        if (c.write == write && c.fn) c.fn(percent);
}

void SceneFileHandler::updateReadProgress(UInt32 percent) {
    report(false, percent);
}
void SceneFileHandler::updateWriteProgress(UInt32 percent) {
    report(true, percent);
}

} // namespace osg
