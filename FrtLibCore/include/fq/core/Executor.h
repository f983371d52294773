#pragma once

// "The main thread" as every subsystem sees it: an executor. The command runs an Asio
// io_context, the desktop app posts into its event loop, and tests drive an io_context by hand
// (poll, run_one) so that each step of a race can be looked at.

#include <asio/any_io_executor.hpp>

namespace fq {

using Executor = asio::any_io_executor;

} // namespace fq
