/* What the H.264 slices in a sample buffer say. */
#ifndef KIV_H264_SAMPLE_BUFFER_H
#define KIV_H264_SAMPLE_BUFFER_H

#include <kiv/h264_slice.h>
#include <pevrin/sample_buffer.h>

PV_BEGIN_DECLS

/* Lists the slices in the data of a sample buffer, in order: those of all its samples, each at the offset in the data
 * at which its NAL unit begins, behind the length field. The data are NAL units with length fields before them, as
 * the 'avcC' atom of the format description says (ISO/IEC 14496-15 5.3.3), and the parameter sets are those of that
 * atom: a stream that carries its parameter sets in the samples ('avc3') is read with those of the atom. NAL units
 * that are no slices, and data partitions B and C, are passed over.
 *
 * *countOut, which may be NULL, is the number of slices; room the number of records that slicesOut has room for. With
 * slicesOut NULL the slices are only counted.
 *
 * Statuses, in this order: kPVSampleBufferError_RequiredParameterMissing, ..._Invalidated (the buffer);
 * kKivBridgeError_InvalidParameter (neither output; no 'avcC' atom in the format description, or a malformed one);
 * kPVSampleBufferError_DataNotReady (no data buffer, or not ready); kKivBridgeError_UnreadableData (a length field that
 * is cut off or reaches past the end); those of KivH264Bridge_GetSliceInformation; kPVSampleBufferError_ArrayTooSmall
 * (*countOut is written); those of the block buffer. Nothing else is written on failure, but slicesOut may hold the
 * slices before. */
PV_EXPORT PVStatus KivH264Bridge_GetSliceInformationFromSampleBuffer(PVSampleBufferRef buffer, size_t room,
                                                                     KivH264SliceInformation *slicesOut,
                                                                     size_t *countOut);

PV_END_DECLS

#endif
