#pragma once
// The reference service decides what becomes of a freshly loaded scene:
// reference(node, fileName) returns the node to insert. The default service
// returns the node it is given.
#include <string>

#include <kestrel/ksInterface.h>
#include <kestrel/osg/Node.h>

class ksReferenceInterface : public ksInterface {
public:
    static constexpr const char* Name = "ksReferenceInterface";
    const char* getInterfaceName() const override;
    virtual osg::NodePtr reference(const osg::NodePtr& node, const std::string& fileName) = 0;
};
