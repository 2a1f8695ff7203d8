// The extension keys that several media types share.
#include <pevrin/format_description.h>

#include <bedra/literal.hpp>

using namespace br::literals;

extern "C" {
constinit const BRStringRef kPVFormatDescriptionExtension_OriginalCompressionSettings =
    "xq.kiv.format_description.original_compression_settings"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms =
    "SampleDescriptionExtensionAtoms"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_VerbatimSampleDescription =
    "VerbatimSampleDescription"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_VerbatimImageDescription =
    "VerbatimSampleDescription"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_VerbatimISOSampleEntry =
    "VerbatimISOSampleEntry"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_FormatName = "FormatName"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_Depth = "Depth"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_Version = "Version"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_RevisionLevel = "RevisionLevel"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_Vendor = "Vendor"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_TemporalQuality = "TemporalQuality"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_SpatialQuality = "SpatialQuality"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_FullRangeVideo = "FullRangeVideo"_br;
}
