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
} // namespace

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
