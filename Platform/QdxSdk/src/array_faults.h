// Messages about arrays left in their file that could not be decoded when
// first used. One list per manager, shared with the arrays it owns.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "qdxsdk/object.h"

namespace qdxsdk::detail {

class ArrayFaults {
public:
    void Add(std::string message);
    std::vector<std::string> List() const;

private:
    mutable std::mutex mLock;
    std::vector<std::string> mMessages;
};

} // namespace qdxsdk::detail
