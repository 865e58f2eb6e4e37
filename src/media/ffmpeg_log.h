#pragma once
// FFmpeg's notes on its own choices (a missing fast path, a timestamp fixed up) aren't the user's
// business: only its errors are printed. Set once for the process, by whoever opens a file first.
namespace ombrik {
void quietFFmpegLog();
}  // namespace ombrik
