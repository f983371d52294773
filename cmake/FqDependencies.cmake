# Every third-party library, found once here; scripts/bootstrap installs them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
# libpd lives in its own prefix (scripts/bootstrap builds it there).
list(APPEND CMAKE_PREFIX_PATH /opt/fretquill/libpd)

find_package(nlohmann_json 3.10 REQUIRED)
find_package(tl-expected REQUIRED)
find_package(fmt REQUIRED)
find_package(CLI11 REQUIRED)
find_package(GTest REQUIRED)
find_package(benchmark REQUIRED)

pkg_check_modules(libpd REQUIRED IMPORTED_TARGET libpd)
pkg_check_modules(plist REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(pcre2 REQUIRED IMPORTED_TARGET libpcre2-8)
pkg_check_modules(icu REQUIRED IMPORTED_TARGET icu-uc icu-i18n)
pkg_check_modules(uriparser REQUIRED IMPORTED_TARGET liburiparser)
pkg_check_modules(uuid REQUIRED IMPORTED_TARGET uuid)
pkg_check_modules(portaudio REQUIRED IMPORTED_TARGET portaudio-2.0)
pkg_check_modules(fluidsynth REQUIRED IMPORTED_TARGET fluidsynth)
pkg_check_modules(sndfile REQUIRED IMPORTED_TARGET sndfile)
pkg_check_modules(samplerate REQUIRED IMPORTED_TARGET samplerate)
pkg_check_modules(aubio REQUIRED IMPORTED_TARGET aubio)
pkg_check_modules(tesseract REQUIRED IMPORTED_TARGET tesseract)
pkg_check_modules(leptonica REQUIRED IMPORTED_TARGET lept)
pkg_check_modules(libpq REQUIRED IMPORTED_TARGET libpq)

# Standalone Asio is header-only.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(fq_asio INTERFACE)
target_include_directories(fq_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
# Asio 1.22 decides between aligned_alloc and operator new by whether a standard
# header came first, so two files could allocate and free the same memory in
# different ways: always operator new.
target_compile_definitions(fq_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_DISABLE_STD_ALIGNED_ALLOC)
add_library(fq::asio ALIAS fq_asio)
