#include "array_faults.h"

namespace qdxsdk::detail {

void ArrayFaults::Add(std::string message) {
    std::lock_guard<std::mutex> lock(mLock);
    mMessages.push_back(std::move(message));
}

std::vector<std::string> ArrayFaults::List() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mMessages;
}

} // namespace qdxsdk::detail
