#pragma once

#include "platform/files/NSURL.h"

/// What locations can do beyond the platform.
namespace MORURLCategory {

/// A location at which nothing exists: `url` itself, else the same name with "-2", "-3" and so on before its last
/// extension. Only looks; another program may take the name before it is used.
platform::NSURL URLForNotOverridingURL(const platform::NSURL& url);

} // namespace MORURLCategory
