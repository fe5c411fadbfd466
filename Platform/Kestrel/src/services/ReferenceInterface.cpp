#include <kestrel/ksReferenceInterface.h>

const char* ksReferenceInterface::getInterfaceName() const {
    return Name;
}
