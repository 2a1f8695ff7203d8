/* Video format descriptions, for sibling media layers. KivVideoFormatDescriptionRegister is in
 * <kiv/format_description.h>. */
#ifndef KIV_VIDEO_FORMAT_DESCRIPTION_H
#define KIV_VIDEO_FORMAT_DESCRIPTION_H

#include <kiv/format_description.h>
#include <pevrin/video_format_description.h>

PV_BEGIN_DECLS

/* Builds the array of PVVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers, once however often it is called.
 * Status: AllocationFailed; a later call then tries again. */
PV_EXPORT PVStatus KivVideoFormatDescriptionCreateKeysCommonWithImageBuffers(void);

PV_END_DECLS

#endif
