#include "media/ffmpeg_log.h"

extern "C" {
#include <libavutil/log.h>
}

namespace ombrik {

void quietFFmpegLog() {
  static const bool quiet = [] {
    av_log_set_level(AV_LOG_ERROR);
    return true;
  }();
  (void)quiet;
}

}  // namespace ombrik
