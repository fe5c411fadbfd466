#include <kestrel/ksUberCameraPool.h>
#include <kestrel/osg/Group.h>

using namespace osg;

ksUberCameraPool& ksUberCameraPool::the() {
    static ksUberCameraPool pool;
    return pool;
}

ksUberCameraPool::ksUberCameraPool() {
    _root = Node::create();
    _root->setCore(Group::create());
    _root->setName("Cameras");
    _default = createCameraNode("Perspective", _root, true);
}

NodePtr ksUberCameraPool::createCameraNode(const std::string& name, const NodePtr& parent,
                                           bool makeActive) {
    UberCameraPtr cam = UberCamera::create();
    cam->setName(name);
    NodePtr node = Node::create();
    node->setCore(cam);
    node->setName(name);
    (parent ? parent : _root)->addChild(node);
    if (makeActive) _active = node;
    return node;
}

void ksUberCameraPool::setActiveCamera(const NodePtr& camera) {
    if (ksUberCameraUtils::isCamera(camera)) _active = camera;
}

void ksUberCameraPool::reset() {
    while (_root->getNChildren() > 0)
        _root->subChild(0u);
    _root->addChild(_default);
    _active = _default;
}
