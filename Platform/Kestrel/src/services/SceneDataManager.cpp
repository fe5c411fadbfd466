#include <memory>
#include <vector>

#include <kestrel/ksOpenSGExt.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksString.h>
#include <kestrel/ksVersionInfo.h>
#include <kestrel/osg/Group.h>

namespace {
std::vector<std::unique_ptr<ksSceneData>>& scenes() {
    static std::vector<std::unique_ptr<ksSceneData>> s = [] {
        std::vector<std::unique_ptr<ksSceneData>> v;
        v.push_back(std::make_unique<ksSceneData>());
        return v;
    }();
    return s;
}
} // namespace

ksSceneData* ksSceneDataManager::getSceneData(int index) {
    auto& s = scenes();
    return index >= 0 && static_cast<std::size_t>(index) < s.size() ? s[std::size_t(index)].get()
                                                                    : nullptr;
}

int ksSceneDataManager::getSceneCount() {
    return static_cast<int>(scenes().size());
}

int ksSceneDataManager::addScene() {
    scenes().push_back(std::make_unique<ksSceneData>());
    return getSceneCount() - 1;
}

void ksSceneDataManager::reset() {
    scenes().clear();
    scenes().push_back(std::make_unique<ksSceneData>());
}
