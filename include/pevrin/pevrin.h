/* All of Pevrin's public headers. */
#ifndef PEVRIN_PEVRIN_H
#define PEVRIN_PEVRIN_H

#include <bedra/bedra.h>
#include <pevrin/attachment.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/base.h>
#include <pevrin/base_object.h>
#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>
#include <pevrin/notification_center.h>
#include <pevrin/time.h>
#include <pevrin/time_range.h>
#include <pevrin/video_format_description.h>

#endif
