#pragma once

namespace hyl::v2::tool {

/// The whole tool; returns its exit code.
int RunTool(int argc, char** argv) noexcept;

}  // namespace hyl::v2::tool
