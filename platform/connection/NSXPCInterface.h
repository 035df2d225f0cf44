#pragma once

#include "platform/connection/NSXPCValue.h"

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// A class that an argument may hold.
struct NSXPCClass {
    /// As on the wire.
    std::string name;
    /// Makes an object of its keyed values; nothing if they make none. Empty for arrays and data, which are no objects
    /// of their own on the wire.
    std::function<std::shared_ptr<NSSecureCoding>(const NSCoder& coder, NSError* error)> initWithCoder;

    static NSXPCClass array() { return {"NSArray", {}}; }
    static NSXPCClass data() { return {"NSData", {}}; }
};

/// The operations that one side of a connection offers, their signatures, and the classes that their arguments may
/// hold. Set up on one thread, then only read.
class NSXPCInterface final {
public:
    struct Argument {
        std::string name;
        std::string signature;
    };
    struct Operation {
        std::vector<Argument> arguments;
        std::vector<Argument> reply;
        /// Whether callers wait for no reply.
        bool isOneWay = false;
    };

    /// Reads the first interface of a D-Bus introspection document, whose node's name is the path of the object.
    /// @return null if the document cannot be read, names no path or has a signature that stands for no value
    [[nodiscard]] static std::shared_ptr<NSXPCInterface> interfaceWithProtocol(const std::string& introspectionXML,
                                                                               NSError* error = nullptr);

    /// Sets the only classes that an argument (or value of the reply) may hold, all its elements included. An argument
    /// of objects for which none are set can hold no object; data without a restriction is let through.
    ///
    /// @param selector  the operation; what follows the first ":" does not count
    void setClasses(std::vector<NSXPCClass> classes, std::string_view selector, size_t argumentIndex, bool ofReply);

    /// Null where none are set.
    const std::vector<NSXPCClass>* classesForSelector(std::string_view selector, size_t argumentIndex,
                                                      bool ofReply) const;

    /// Null for an operation that the interface does not have.
    const Operation* operation(std::string_view selector) const;

    const std::string& name() const { return name_; }
    const std::string& objectPath() const { return objectPath_; }
    /// The document it was made of.
    const std::string& introspectionXML() const { return introspectionXML_; }

private:
    NSXPCInterface() = default;

    struct ClassesKey {
        std::string selector;
        size_t argumentIndex;
        bool ofReply;
        auto operator<=>(const ClassesKey&) const = default;
    };

    std::string introspectionXML_;
    std::string name_;
    std::string objectPath_;
    std::map<std::string, Operation, std::less<>> operations_;
    std::map<ClassesKey, std::vector<NSXPCClass>> classes_;
};

} // namespace platform
