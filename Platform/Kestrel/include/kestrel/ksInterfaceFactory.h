#pragma once
// The interface factory: named services that the host can replace.
//
// The reference service (see ksReferenceInterface.h) may be cached: the
// pointer getReferenceInterface() returns lives for the whole process and
// forwards every call to the service installed at the time of the call, so
// it stays valid when a host installs another service or resets the factory.
// Pointers to other services are valid until they are replaced or reset.
#include <memory>
#include <string>

#include <kestrel/ksInterface.h>
#include <kestrel/ksReferenceInterface.h>

class ksInterfaceFactory {
public:
    static ksInterfaceFactory& the();
    ksInterfaceFactory* operator->() { return this; }

    // The service registered under name, or null. For the reference
    // service's name this is the same process-lived object as
    // getReferenceInterface().
    ksInterface* getInterface(const std::string& name) const;
    ksReferenceInterface* getReferenceInterface() const;
    // Installs a service (replacing one of the same name); the factory owns
    // it. A call already running in a replaced reference service finishes
    // before that service is freed.
    void setInterface(std::unique_ptr<ksInterface> service);
    // Restores the default services.
    void reset();

    struct Impl;

private:
    ksInterfaceFactory();
    std::shared_ptr<Impl> _impl;
};
