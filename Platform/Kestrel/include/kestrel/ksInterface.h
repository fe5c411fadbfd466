#pragma once
// Base of the named services that the interface factory hands out.

class ksInterface {
public:
    virtual ~ksInterface();
    virtual const char* getInterfaceName() const = 0;
};
