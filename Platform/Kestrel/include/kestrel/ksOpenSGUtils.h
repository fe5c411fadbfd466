#pragma once
// Broadcast messages between parts of the host.
//
// A ksMessage is a set of named entries (bool, integer, double or text).
// ksOpenSGUtils::call(name, message, flags) passes the message to every
// listener registered for that name, in registration order, and returns the
// number of listeners reached. Listeners may change the message (replies).
#include <functional>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include <kestrel/ksMessage.h>

class ksOpenSGUtils {
public:
    using Listener = std::function<void(const std::string& name, ksMessage& message, int flags)>;

    static int call(const std::string& name, ksMessage& message, int flags = 0);
    // Listener for one message name ("" receives every message); returns an
    // id for removeListener.
    static int addListener(const std::string& name, Listener listener);
    static void removeListener(int id);
};
