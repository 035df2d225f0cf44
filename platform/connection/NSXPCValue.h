#pragma once

#include "platform/archive/NSCoder.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace platform {

/// Objects of classes that can cross a connection, in order.
using NSXPCObjects = std::vector<std::shared_ptr<NSSecureCoding>>;

/// One argument of a call, or one value of its reply. Each kind stands for one signature: `b`, `x`, `d`, `s`, `ay`,
/// `a(sa{sv})` and `a(sxs)`.
using NSXPCValue = std::variant<bool, int64_t, double, std::string, NSData, NSXPCObjects, std::optional<NSError>>;
using NSXPCValues = std::vector<NSXPCValue>;

/// Codes of the Cocoa domain for calls that the other side did not answer.
inline constexpr int64_t kNSXPCConnectionInvalid = 4099;
inline constexpr int64_t kNSXPCConnectionReplyInvalid = 4101;

/// The one answer to a call. Used up by answering; dropped unanswered it sends an error and logs it. Any thread.
class NSXPCReply final {
public:
    /// What sends: the values, or the error where there are none. Called exactly once.
    using Send = std::move_only_function<void(std::optional<NSXPCValues> values, const NSError& error)>;

    NSXPCReply(std::string selector, Send send);
    NSXPCReply(NSXPCReply&& other) noexcept;
    NSXPCReply& operator=(NSXPCReply&&) = delete;
    ~NSXPCReply();

    /// Sends the values, which must match the operation's reply; a second call does nothing but log.
    void operator()(NSXPCValues values);

private:
    std::string selector_;
    Send send_;
};

/// What answers a peer's calls.
class NSXPCExportedObject {
public:
    virtual ~NSXPCExportedObject() = default;

    /// One call whose arguments match the interface in number and kind. On the connection's own queue, one at a time;
    /// should return soon.
    virtual void invoke(const std::string& selector, NSXPCValues arguments, NSXPCReply reply) = 0;
};

} // namespace platform
