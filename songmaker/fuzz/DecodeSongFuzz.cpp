// Any bytes given to the song reader must give a song or an error, never a crash,
// and a song that reads must write and read back.
#include <fq/songmaker/SongDocument.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto song = fq::songmaker::decodeSong(bytes);
    if (song) {
        const auto written = fq::songmaker::encodeSong(*song);
        if (!written || !fq::songmaker::decodeSong(*written)) std::abort();
    }
    return 0;
}
