#include <kestrel/ksUberCameraPool.h>
#include <kestrel/ksUberCameraUtils.h>

using namespace osg;

bool ksUberCameraUtils::isCamera(const NodePtr& node) {
    return bool(getCamera(node));
}

UberCameraPtr ksUberCameraUtils::getCamera(const NodePtr& node) {
    return node ? UberCameraPtr::dcast(node->getCore()) : UberCameraPtr();
}

bool ksUberCameraUtils::isDefaultCamera(const NodePtr& node) {
    NodePtr def = ksUberCameraPool::the().getDefaultCamera();
    return node && (node == def || (getCamera(node) && getCamera(node) == getCamera(def)));
}

bool ksUberCameraUtils::isDefaultCamera(const UberCameraPtr& camera) {
    return camera && camera == getCamera(ksUberCameraPool::the().getDefaultCamera());
}

std::string ksUberCameraUtils::getName(const NodePtr& node) {
    return node ? node->getName() : std::string();
}

std::string ksUberCameraUtils::getName(const UberCameraPtr& camera) {
    return camera ? camera->getName() : std::string();
}
