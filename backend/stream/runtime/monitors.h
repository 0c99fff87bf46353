#pragma once

#include "backend/platform/async.h"

namespace weir {

class Stream;

/// The monitors of one cycle. Each lasts until the cycle's end at most and belongs to that cycle: it reads the stream's
/// members and acts on the stream through `restart` alone. What a call does before it gives the coroutine is the
/// monitor's set-up.

/// Restarts the stream according to its timetable, or on a better input that answers again.
Async<> schedule_monitor(Stream& stream);
/// Restarts the stream when its transcoder outgrows its limit of system or graphics memory.
Async<> process_monitor(Stream& stream);
/// Reads the transcoder's standard error into the figures, the media information and the log; sets "running".
Async<> progress_monitor(Stream& stream);
/// Restarts the stream when its media time stands still.
Async<> timeout_monitor(Stream& stream);
/// Restarts the stream when its speed stays outside its band. The set-up throws when the band is no number.
Async<> speed_monitor(Stream& stream);
/// Deletes the HLS segments that have left their playlist. Restarts the stream when its HLS directory is lost.
Async<> segment_monitor(Stream& stream);
/// Writes the HLS master playlist once every variant has its playlist.
Async<> master_playlist_monitor(Stream& stream);

}  // namespace weir
