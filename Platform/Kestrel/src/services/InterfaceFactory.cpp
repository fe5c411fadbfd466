#include <mutex>
#include <vector>

#include <kestrel/ksInterfaceFactory.h>

namespace {
// The default reference service: the loaded scene is inserted as it is.
class DefaultReference : public ksReferenceInterface {
public:
    osg::NodePtr reference(const osg::NodePtr& node, const std::string&) override { return node; }
};
} // namespace

struct ksInterfaceFactory::Impl {
    mutable std::mutex mutex;
    std::vector<std::shared_ptr<ksInterface>> services;

    std::shared_ptr<ksInterface> find(const std::string& name) const {
        std::lock_guard lock(mutex);
        for (const auto& s : services)
            if (name == s->getInterfaceName()) return s;
        return nullptr;
    }
};

namespace {
// What getReferenceInterface() hands out: one object for the process that
// forwards to whichever reference service is installed when it is called.
// It holds the factory's state, so it also outlives the factory object.
class ReferenceForwarder : public ksReferenceInterface {
public:
    explicit ReferenceForwarder(std::shared_ptr<ksInterfaceFactory::Impl> impl)
        : _impl(std::move(impl)) {}
    osg::NodePtr reference(const osg::NodePtr& node, const std::string& fileName) override {
        // The shared handle keeps the service alive while it runs, even if
        // it is replaced meanwhile.
        auto service = std::dynamic_pointer_cast<ksReferenceInterface>(_impl->find(Name));
        return service ? service->reference(node, fileName) : node;
    }

private:
    std::shared_ptr<ksInterfaceFactory::Impl> _impl;
};

// Created once and never destroyed: cached pointers stay valid even while
// static objects are torn down at exit.
ReferenceForwarder* forwarder(const std::shared_ptr<ksInterfaceFactory::Impl>& impl) {
    static ReferenceForwarder* f = new ReferenceForwarder(impl);
    return f;
}
} // namespace

ksInterfaceFactory& ksInterfaceFactory::the() {
    static ksInterfaceFactory f;
    return f;
}

ksInterfaceFactory::ksInterfaceFactory() : _impl(std::make_shared<Impl>()) {
    reset();
}

void ksInterfaceFactory::reset() {
    std::vector<std::shared_ptr<ksInterface>> services;
    services.push_back(std::make_shared<DefaultReference>());
    {
        std::lock_guard lock(_impl->mutex);
        _impl->services.swap(services);
    }
    // The old services die here, outside the lock, unless a forwarded call
    // still holds one.
}

ksInterface* ksInterfaceFactory::getInterface(const std::string& name) const {
    if (name == ksReferenceInterface::Name) return getReferenceInterface();
    return _impl->find(name).get();
}

ksReferenceInterface* ksInterfaceFactory::getReferenceInterface() const {
    return forwarder(_impl);
}

void ksInterfaceFactory::setInterface(std::unique_ptr<ksInterface> service) {
    if (!service) return;
    std::shared_ptr<ksInterface> incoming(std::move(service));
    std::shared_ptr<ksInterface> replaced;
    std::lock_guard lock(_impl->mutex);
    for (auto& s : _impl->services)
        if (std::string(s->getInterfaceName()) == incoming->getInterfaceName()) {
            replaced = std::move(s);
            s = std::move(incoming);
            return;
        }
    _impl->services.push_back(std::move(incoming));
}
