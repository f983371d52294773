// libFuzzer: any link, identifier or activity is handled in silence, never a crash,
// and leaves at most one route on the stack.

#include <fq/navigation/LinkHandler.h>

#include <asio/io_context.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fq::navigation;
    const std::string text(reinterpret_cast<const char*>(data), size);
    asio::io_context main;
    Router router{main.get_executor()};
    // no store: the fuzzer must not write files; the day is fixed so runs repeat
    const NavigationContext context{router, nullptr, [] {
                                        return std::chrono::year_month_day{std::chrono::year{2026},
                                                                           std::chrono::March,
                                                                           std::chrono::day{1}};
                                    }};
    handleChordURL(text, context);
    handleChordURL("fretquill://spotlight/" + text, context);
    handleSearchIdentifier(text, context);
    handleUserActivity(UserActivity{"com.kelvane.frtqul.chord.view", std::nullopt, {{"url", text}}},
                       context);
    main.run();
    if (router.path().size() > 1) std::abort();
    return 0;
}
