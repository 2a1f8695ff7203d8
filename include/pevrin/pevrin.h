/* All of Pevrin's public headers. */
#ifndef PEVRIN_PEVRIN_H
#define PEVRIN_PEVRIN_H

#include <bedra/bedra.h>
#include <pevrin/attachment.h>
#include <pevrin/audio_device_clock.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/base.h>
#include <pevrin/base_object.h>
#include <pevrin/block_buffer.h>
#include <pevrin/buffer_queue.h>
#include <pevrin/clock.h>
#include <pevrin/closed_caption_description.h>
#include <pevrin/format_description.h>
#include <pevrin/handler.h>
#include <pevrin/image_description.h>
#include <pevrin/memory_pool.h>
#include <pevrin/metadata.h>
#include <pevrin/metadata_data_type.h>
#include <pevrin/notification_center.h>
#include <pevrin/sample_buffer.h>
#include <pevrin/sample_buffer_audio.h>
#include <pevrin/sample_buffer_data.h>
#include <pevrin/sample_buffer_pieces.h>
#include <pevrin/sample_description.h>
#include <pevrin/simple_queue.h>
#include <pevrin/sound_description.h>
#include <pevrin/sync.h>
#include <pevrin/text_description.h>
#include <pevrin/text_format_description.h>
#include <pevrin/time.h>
#include <pevrin/time_range.h>
#include <pevrin/timebase.h>
#include <pevrin/timebase_timer.h>
#include <pevrin/timecode_format_description.h>
#include <pevrin/video_format_description.h>

#endif
