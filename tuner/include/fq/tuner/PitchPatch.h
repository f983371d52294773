#pragma once

#include <string_view>

namespace fq::tuner {

/// The Pure Data patch behind the tuner, written out byte for byte to a file that libpd
/// opens. The input passes a 46 dB level gate into sigmund~; its continuous pitch goes
/// out on "frequency" only while it agrees within 3 semitones with its own note
/// estimate, and otherwise as mtof(0), about 8.18 Hz, which the receiver drops.
inline constexpr std::string_view pitchRecognizerPatch =
    "#N canvas 335 190 604 790 12;\n"
    "#X obj 76 66 env~;\n"
    "#X obj 55 198 *~;\n"
    "#X obj 98 118 sel 1;\n"
    "#X msg 138 154 1;\n"
    "#X obj 40 31 adc~ 1;\n"
    "#X obj 166 444 mtof;\n"
    "#X floatatom 166 470 5 0 0 1 s:frequency - frequency 0;\n"
    "#X floatatom 245 274 5 0 0 0 - - - 0;\n"
    "#X floatatom 181 274 5 0 0 0 - - - 0;\n"
    "#X obj 212 304 -;\n"
    "#X obj 212 330 abs;\n"
    "#X floatatom 212 381 5 0 0 0 - - - 0;\n"
    "#X obj 166 420 *;\n"
    "#X obj 212 356 < 3;\n"
    "#X msg 98 154 0;\n"
    "#X obj 55 237 sigmund~ -hop 256 -npts 2048 pitch notes, f 42;\n"
    "#X obj 76 89 < 46;\n"
    "#X connect 0 0 16 0;\n"
    "#X connect 1 0 15 0;\n"
    "#X connect 2 0 14 0;\n"
    "#X connect 2 1 3 0;\n"
    "#X connect 3 0 1 1;\n"
    "#X connect 4 0 1 0;\n"
    "#X connect 4 0 0 0;\n"
    "#X connect 5 0 6 0;\n"
    "#X connect 7 0 9 1;\n"
    "#X connect 8 0 9 0;\n"
    "#X connect 9 0 10 0;\n"
    "#X connect 10 0 13 0;\n"
    "#X connect 11 0 12 1;\n"
    "#X connect 12 0 5 0;\n"
    "#X connect 13 0 11 0;\n"
    "#X connect 14 0 1 1;\n"
    "#X connect 15 0 8 0;\n"
    "#X connect 15 0 12 0;\n"
    "#X connect 15 1 7 0;\n"
    "#X connect 16 0 2 0;\n";

} // namespace fq::tuner
