#include <kestrel/ksInterface.h>

ksInterface::~ksInterface() = default;
