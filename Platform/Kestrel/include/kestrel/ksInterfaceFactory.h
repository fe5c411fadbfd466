#pragma once
// The interface factory: named services that the host can replace.
//
// The reference service decides what becomes of a freshly loaded scene:
// reference(node, fileName) returns the node to insert. The default service
// returns the node it is given. A host may install another one.
#include <memory>
#include <string>

#include <kestrel/osg/Node.h>

class ksInterface {
public:
    virtual ~ksInterface() = default;
    virtual const char* getInterfaceName() const = 0;
};

class ksReferenceInterface : public ksInterface {
public:
    static constexpr const char* Name = "ksReferenceInterface";
    const char* getInterfaceName() const override { return Name; }
    virtual osg::NodePtr reference(const osg::NodePtr& node, const std::string& fileName) = 0;
};

class ksInterfaceFactory {
public:
    static ksInterfaceFactory& the();
    ksInterfaceFactory* operator->() { return this; }

    // The service registered under name, or null.
    ksInterface* getInterface(const std::string& name) const;
    ksReferenceInterface* getReferenceInterface() const;
    // Installs a service (replacing one of the same name); the factory owns it.
    void setInterface(std::unique_ptr<ksInterface> service);
    // Restores the default services.
    void reset();

private:
    ksInterfaceFactory();
    struct Impl;
    std::shared_ptr<Impl> _impl;
};
