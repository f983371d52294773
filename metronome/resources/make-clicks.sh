#!/bin/sh
# Makes the two click sounds the metronome embeds: "tick", the accented first beat,
# and "tock", every other click. Short sine bursts with a fast attack and a falling
# tail, written mono at 48 kHz; the program converts them to 44.1 kHz stereo when it
# loads them. Run it from this folder and commit the results.
set -e
cd "$(dirname "$0")"
sox -R -n -r 48000 -c 1 -b 16 Sounds/tick.wav synth 0.045 sine 2093 sine 3136 remix 1,2 \
    fade q 0.0008 0.045 0.040 gain -n -2
sox -R -n -r 48000 -c 1 -b 16 Sounds/tock.wav synth 0.035 sine 1397 sine 2093 remix 1,2 \
    fade q 0.0008 0.035 0.031 gain -n -5
