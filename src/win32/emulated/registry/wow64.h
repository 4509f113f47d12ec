// The 32-bit view of the registry: where its keys lie (Microsoft's "Registry Keys Affected by WOW64").
#pragma once

#include <string>
#include <string_view>

namespace emulated {

// The key that `path` (below \REGISTRY, any case) means. In the 32-bit view MACHINE\SOFTWARE lies in its Wow6432Node,
// but for keys that both views share; a path that names Wow6432Node itself means the 32-bit view whatever is asked for.
std::u16string RedirectForView(std::u16string_view path, bool view32);

}  // namespace emulated
