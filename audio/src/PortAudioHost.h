#pragma once

// The one wrapper around PortAudio's library state: initialisation, enumeration and
// error texts. PortAudio's functions other than the stream callback are not safe to
// call from several threads at once, so every call goes through this object's lock.

#include "fq/audio/AudioDevices.h"

#include <fq/core/Error.h>

#include <portaudio.h>
#include <tl/expected.hpp>

#include <mutex>
#include <string>
#include <vector>

namespace fq::audio::detail {

class PortAudioHost {
public:
    static PortAudioHost& instance();

    /// Held around every PortAudio call outside the callbacks.
    std::unique_lock<std::recursive_mutex> lock() { return std::unique_lock(mutex_); }

    /// Initialises PortAudio once; the caller holds lock().
    tl::expected<void, Error> ensureInitialised();
    /// Enumerates the devices afresh, which PortAudio can do only while no stream is
    /// open; with streams open it keeps the list it has. The caller holds lock().
    tl::expected<void, Error> rescan();
    /// The caller holds lock() and has initialised.
    std::vector<AudioDeviceInfo> devices() const;

    void streamOpened() { ++openStreams_; }
    void streamClosed() { --openStreams_; }

private:
    std::recursive_mutex mutex_;
    bool initialised_ = false;
    int openStreams_ = 0;
};

/// Whether a stream opens on the device now (it is opened and closed again). The
/// caller holds lock().
bool canOpen(const AudioDeviceInfo& device, AudioDirection direction);

/// "Invalid device" or, for a host error, the host's own text.
std::string errorText(PaError error);

/// Keeps standard error closed for its lifetime: PortAudio's host back-ends print
/// pages of probing noise (JACK, ALSA cards that are not there) while they start.
class QuietStandardError {
public:
    QuietStandardError();
    ~QuietStandardError();
    QuietStandardError(const QuietStandardError&) = delete;
    QuietStandardError& operator=(const QuietStandardError&) = delete;

private:
    int saved_ = -1;
};

} // namespace fq::audio::detail
