/* Tonvik, the audio format service: the records and codes of audio formats.
 *
 * An AudioStreamBasicDescription says what a stream of audio is. In linear PCM a packet is one frame; in compressed
 * formats it is what the encoder makes of framesPerPacket frames. A field that does not apply, or varies from packet to
 * packet, is 0.
 *
 * An AudioChannelLayout says where the channels belong, in one of three ways, which channelLayoutTag tells:
 *   kAudioChannelLayoutTag_UseChannelDescriptions   one AudioChannelDescription for each channel follows;
 *   kAudioChannelLayoutTag_UseChannelBitmap         channelBitmap has one bit for each channel, lowest bit first;
 *   any other tag                                   an arrangement that has a number; its low 16 bits are the number
 *                                                   of channels. The other fields then say nothing.
 * The numbers of tags, labels and bits are those that movie files store in their 'chan' atoms.
 *
 * Alignment: stream descriptions are aligned to 4 bytes only, so that list items follow each other every 44 bytes. Take
 * no pointer to a sampleRate; copy it.
 *
 *   AudioStreamBasicDescription cd = {44100, kAudioFormatLinearPCM,
 *                                     kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked, 4, 1, 4, 2, 16, 0};
 *   AudioChannelLayout stereo = {kAudioChannelLayoutTag_Stereo, 0, 0}; */
#ifndef TONVIK_AUDIO_TYPES_H
#define TONVIK_AUDIO_TYPES_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* Records without padding that may stand at any multiple of 4 bytes. */
#define TONVIK_ALIGNED_TO_4 __attribute__((packed, aligned(4)))

/* Format IDs: four-character codes. <tonvik/audio_format.h> tells which of them can be decoded here. */
typedef uint32_t AudioFormatID;
enum {
  kAudioFormatLinearPCM = 0x6C70636D,          /* 'lpcm' */
  kAudioFormatMPEG4AAC = 0x61616320,           /* 'aac ' AAC without layers on top (ISO/IEC 14496-3) */
  kAudioFormatMPEG4AAC_HE = 0x61616368,        /* 'aach' with spectral band replication */
  kAudioFormatMPEG4AAC_HE_V2 = 0x61616370,     /* 'aacp' with that and parametric stereo */
  kAudioFormatMPEG4AAC_LD = 0x6161636C,        /* 'aacl' low delay */
  kAudioFormatMPEG4AAC_ELD = 0x61616365,       /* 'aace' enhanced low delay */
  kAudioFormatMPEGLayer1 = 0x2E6D7031,         /* '.mp1' */
  kAudioFormatMPEGLayer2 = 0x2E6D7032,         /* '.mp2' */
  kAudioFormatMPEGLayer3 = 0x2E6D7033,         /* '.mp3' */
  kAudioFormatAC3 = 0x61632D33,                /* 'ac-3' */
  kAudioFormatEnhancedAC3 = 0x65632D33,        /* 'ec-3' */
  kAudioFormatLossless = 0x616C6163,           /* 'alac' */
  kAudioFormatFLAC = 0x666C6163,               /* 'flac' */
  kAudioFormatOpus = 0x6F707573,               /* 'opus' */
  kAudioFormatALaw = 0x616C6177,               /* 'alaw' G.711 */
  kAudioFormatULaw = 0x756C6177,               /* 'ulaw' G.711 */
  kAudioFormatIMA4 = 0x696D6134,               /* 'ima4' ADPCM 4:1 */
  kAudioFormatMACE3 = 0x4D414333,              /* 'MAC3' */
  kAudioFormatMACE6 = 0x4D414336,              /* 'MAC6' */
  kAudioFormatQDesign = 0x51444D43,            /* 'QDMC' */
  kAudioFormatQDesign2 = 0x51444D32,           /* 'QDM2' */
  kAudioFormatQUALCOMM = 0x51636C70,           /* 'Qclp' */
  kAudioFormatAMR = 0x73616D72,                /* 'samr' narrow band */
  kAudioFormatAMR_WB = 0x73617762,             /* 'sawb' wide band */
  kAudioFormatiLBC = 0x696C6263,               /* 'ilbc' */
  kAudioFormatMicrosoftADPCM = 0x6D730002,     /* 'ms' and the WAVE format number */
  kAudioFormatWAVEIMAADPCM = 0x6D730011,
  kAudioFormatMicrosoftGSM = 0x6D730031
};

/* Flags of linear PCM; other formats have their own or none. */
typedef uint32_t AudioFormatFlags;
enum {
  kAudioFormatFlagIsFloat = 1u << 0,
  kAudioFormatFlagIsBigEndian = 1u << 1,
  kAudioFormatFlagIsSignedInteger = 1u << 2,
  kAudioFormatFlagIsPacked = 1u << 3,         /* a sample's bits fill its bytes */
  kAudioFormatFlagIsAlignedHigh = 1u << 4,    /* if they do not: they stand at the high end */
  kAudioFormatFlagIsNonInterleaved = 1u << 5, /* a buffer for each channel; byte counts are those of one channel */
  kAudioFormatFlagIsNonMixable = 1u << 6
};

/* A format of sound. */
typedef struct TONVIK_ALIGNED_TO_4 AudioStreamBasicDescription {
  double sampleRate; /* frames a second */
  AudioFormatID formatID;
  AudioFormatFlags formatFlags;
  uint32_t bytesPerPacket;
  uint32_t framesPerPacket;
  uint32_t bytesPerFrame;
  uint32_t channelsPerFrame;
  uint32_t bitsPerChannel;
  uint32_t reserved; /* 0 */
} AudioStreamBasicDescription;

/* Labels: what one channel is. */
typedef uint32_t AudioChannelLabel;
enum {
  kAudioChannelLabel_Unused = 0,
  kAudioChannelLabel_Left = 1,
  kAudioChannelLabel_Right = 2,
  kAudioChannelLabel_Center = 3,
  kAudioChannelLabel_LFEScreen = 4,
  kAudioChannelLabel_LeftSurround = 5,
  kAudioChannelLabel_RightSurround = 6,
  kAudioChannelLabel_LeftCenter = 7,
  kAudioChannelLabel_RightCenter = 8,
  kAudioChannelLabel_CenterSurround = 9,
  kAudioChannelLabel_LeftSurroundDirect = 10,
  kAudioChannelLabel_RightSurroundDirect = 11,
  kAudioChannelLabel_TopCenterSurround = 12,
  kAudioChannelLabel_VerticalHeightLeft = 13,
  kAudioChannelLabel_VerticalHeightCenter = 14,
  kAudioChannelLabel_VerticalHeightRight = 15,
  kAudioChannelLabel_TopBackLeft = 16,
  kAudioChannelLabel_TopBackCenter = 17,
  kAudioChannelLabel_TopBackRight = 18,
  kAudioChannelLabel_RearSurroundLeft = 33,
  kAudioChannelLabel_RearSurroundRight = 34,
  kAudioChannelLabel_LeftWide = 35,
  kAudioChannelLabel_RightWide = 36,
  kAudioChannelLabel_LFE2 = 37,
  kAudioChannelLabel_LeftTotal = 38,  /* matrix-encoded */
  kAudioChannelLabel_RightTotal = 39,
  kAudioChannelLabel_Mono = 42,
  kAudioChannelLabel_UseCoordinates = 100,
  kAudioChannelLabel_MS_Mid = 204,
  kAudioChannelLabel_MS_Side = 205,
  kAudioChannelLabel_XY_X = 206,
  kAudioChannelLabel_XY_Y = 207,
  kAudioChannelLabel_BinauralLeft = 208,
  kAudioChannelLabel_BinauralRight = 209,
  kAudioChannelLabel_HeadphonesLeft = 301,
  kAudioChannelLabel_HeadphonesRight = 302,
  kAudioChannelLabel_Discrete_0 = 0x10000 /* and the channel's number */
};
#define kAudioChannelLabel_Unknown ((AudioChannelLabel)0xFFFFFFFF) /* no enumerator in C, like the tag below */

/* Bit n of a bitmap stands for the channel with the label n + 1. */
typedef uint32_t AudioChannelBitmap;

/* What is in coordinates. */
typedef uint32_t AudioChannelFlags;
enum {
  kAudioChannelFlags_RectangularCoordinates = 1u << 0, /* left-right, back-front, below-above; else */
  kAudioChannelFlags_SphericalCoordinates = 1u << 1,   /* azimuth, elevation in degrees, distance */
  kAudioChannelFlags_Meters = 1u << 2                  /* distances in metres; else relative ones */
};

/* One channel: what it is, and where when it has coordinates. */
typedef struct AudioChannelDescription {
  AudioChannelLabel channelLabel;
  AudioChannelFlags channelFlags;
  float coordinates[3]; /* looked at only with kAudioChannelLabel_UseCoordinates */
} AudioChannelDescription;

/* Tags: how the channels of a stream are arranged. The comments name them in their order. */
typedef uint32_t AudioChannelLayoutTag;
enum {
  kAudioChannelLayoutTag_UseChannelDescriptions = 0,
  kAudioChannelLayoutTag_UseChannelBitmap = 0x10000,
  kAudioChannelLayoutTag_Mono = (100 << 16) | 1,
  kAudioChannelLayoutTag_Stereo = (101 << 16) | 2,           /* L R */
  kAudioChannelLayoutTag_StereoHeadphones = (102 << 16) | 2,
  kAudioChannelLayoutTag_MatrixStereo = (103 << 16) | 2,     /* Lt Rt */
  kAudioChannelLayoutTag_MidSide = (104 << 16) | 2,
  kAudioChannelLayoutTag_XY = (105 << 16) | 2,
  kAudioChannelLayoutTag_Binaural = (106 << 16) | 2,
  kAudioChannelLayoutTag_Quadraphonic = (108 << 16) | 4,     /* L R Ls Rs */
  kAudioChannelLayoutTag_Pentagonal = (109 << 16) | 5,       /* L R Ls Rs C */
  kAudioChannelLayoutTag_Hexagonal = (110 << 16) | 6,        /* L R Ls Rs C Cs */
  kAudioChannelLayoutTag_MPEG_3_0_A = (113 << 16) | 3,       /* L R C */
  kAudioChannelLayoutTag_MPEG_3_0_B = (114 << 16) | 3,       /* C L R */
  kAudioChannelLayoutTag_MPEG_4_0_A = (115 << 16) | 4,       /* L R C Cs */
  kAudioChannelLayoutTag_MPEG_4_0_B = (116 << 16) | 4,       /* C L R Cs */
  kAudioChannelLayoutTag_MPEG_5_0_A = (117 << 16) | 5,       /* L R C Ls Rs */
  kAudioChannelLayoutTag_MPEG_5_0_B = (118 << 16) | 5,       /* L R Ls Rs C */
  kAudioChannelLayoutTag_MPEG_5_0_C = (119 << 16) | 5,       /* L C R Ls Rs */
  kAudioChannelLayoutTag_MPEG_5_0_D = (120 << 16) | 5,       /* C L R Ls Rs */
  kAudioChannelLayoutTag_MPEG_5_1_A = (121 << 16) | 6,       /* L R C LFE Ls Rs */
  kAudioChannelLayoutTag_MPEG_5_1_B = (122 << 16) | 6,       /* L R Ls Rs C LFE */
  kAudioChannelLayoutTag_MPEG_5_1_C = (123 << 16) | 6,       /* L C R Ls Rs LFE */
  kAudioChannelLayoutTag_MPEG_5_1_D = (124 << 16) | 6,       /* C L R Ls Rs LFE */
  kAudioChannelLayoutTag_MPEG_6_1_A = (125 << 16) | 7,       /* L R C LFE Ls Rs Cs */
  kAudioChannelLayoutTag_MPEG_7_1_A = (126 << 16) | 8,       /* L R C LFE Ls Rs Lc Rc */
  kAudioChannelLayoutTag_MPEG_7_1_B = (127 << 16) | 8,       /* C Lc Rc L R Ls Rs LFE */
  kAudioChannelLayoutTag_MPEG_7_1_C = (128 << 16) | 8,       /* L R C LFE Ls Rs Rls Rrs */
  kAudioChannelLayoutTag_ITU_2_1 = (131 << 16) | 3,          /* L R Cs */
  kAudioChannelLayoutTag_ITU_2_2 = (132 << 16) | 4,          /* L R Ls Rs */
  kAudioChannelLayoutTag_DVD_4 = (133 << 16) | 3,            /* L R LFE */
  kAudioChannelLayoutTag_DVD_5 = (134 << 16) | 4,            /* L R LFE Cs */
  kAudioChannelLayoutTag_DVD_6 = (135 << 16) | 5,            /* L R LFE Ls Rs */
  kAudioChannelLayoutTag_DVD_10 = (136 << 16) | 4,           /* L R C LFE */
  kAudioChannelLayoutTag_DVD_11 = (137 << 16) | 5,           /* L R C LFE Cs */
  kAudioChannelLayoutTag_DVD_18 = (138 << 16) | 5,           /* L R Ls Rs LFE */
  kAudioChannelLayoutTag_AudioUnit_6_0 = (139 << 16) | 6,    /* L R Ls Rs C Cs */
  kAudioChannelLayoutTag_AudioUnit_7_0 = (140 << 16) | 7,    /* L R Ls Rs C Rls Rrs */
  kAudioChannelLayoutTag_AAC_6_0 = (141 << 16) | 6,          /* C L R Ls Rs Cs */
  kAudioChannelLayoutTag_AAC_6_1 = (142 << 16) | 7,          /* C L R Ls Rs Cs LFE */
  kAudioChannelLayoutTag_AAC_7_0 = (143 << 16) | 7,          /* C L R Ls Rs Rls Rrs */
  kAudioChannelLayoutTag_AAC_Octagonal = (144 << 16) | 8,    /* C L R Ls Rs Rls Rrs Cs */
  kAudioChannelLayoutTag_DiscreteInOrder = 147 << 16,        /* and the number of channels */
  kAudioChannelLayoutTag_AudioUnit_7_0_Front = (148 << 16) | 7, /* L R Ls Rs C Lc Rc */
  kAudioChannelLayoutTag_AC3_1_0_1 = (149 << 16) | 2,        /* C LFE */
  kAudioChannelLayoutTag_AC3_3_0 = (150 << 16) | 3,          /* L C R */
  kAudioChannelLayoutTag_AC3_3_1 = (151 << 16) | 4,          /* L C R Cs */
  kAudioChannelLayoutTag_AC3_3_0_1 = (152 << 16) | 4,        /* L C R LFE */
  kAudioChannelLayoutTag_AC3_2_1_1 = (153 << 16) | 4,        /* L R Cs LFE */
  kAudioChannelLayoutTag_AC3_3_1_1 = (154 << 16) | 5,        /* L C R Cs LFE */
  kAudioChannelLayoutTag_AAC_7_1_B = (183 << 16) | 8,        /* C L R Ls Rs Rls Rrs LFE */
  kAudioChannelLayoutTag_AAC_7_1_C = (184 << 16) | 8         /* C L R Ls Rs LFE Vhl Vhr */
};
#define kAudioChannelLayoutTag_Unknown ((AudioChannelLayoutTag)0xFFFF0000) /* may have the number of channels below */

/* The header of a layout, 12 bytes; the descriptions, when it uses them, follow it in the same block of memory. */
typedef struct AudioChannelLayout {
  AudioChannelLayoutTag channelLayoutTag;
  AudioChannelBitmap channelBitmap;
  uint32_t numberChannelDescriptions;
  __extension__ AudioChannelDescription channelDescriptions[];
} AudioChannelLayout;

/* One way to play a stream. */
typedef struct TONVIK_ALIGNED_TO_4 AudioFormatListItem {
  AudioStreamBasicDescription streamBasicDescription;
  AudioChannelLayoutTag channelLayoutTag;
} AudioFormatListItem;

/* Where one packet lies in a run of packets of variable size, and what it holds. */
typedef struct AudioStreamPacketDescription {
  int64_t startOffset;             /* bytes from the start of the data */
  uint32_t variableFramesInPacket; /* 0 when the number of frames is that of the stream description */
  uint32_t dataByteSize;
} AudioStreamPacketDescription;

/* One run of audio data in memory: the samples of one channel, or of several interleaved. */
typedef struct AudioBuffer {
  uint32_t numberChannels;
  uint32_t dataByteSize;
  void *data;
} AudioBuffer;

/* Buffers that belong together. Those after the first follow it in the same block of memory: a list of n takes
 * 24 + 16 * (n - 1) bytes. */
typedef struct AudioBufferList {
  uint32_t numberBuffers;
  AudioBuffer buffers[1];
} AudioBufferList;

#if defined(__cplusplus)
static_assert(sizeof(AudioStreamBasicDescription) == 40 && sizeof(AudioFormatListItem) == 44, "no padding");
static_assert(sizeof(AudioChannelLayout) == 12 && sizeof(AudioChannelDescription) == 20, "no padding");
static_assert(sizeof(AudioStreamPacketDescription) == 16 && sizeof(AudioBufferList) == 24, "of 64-bit hosts");
#else
_Static_assert(sizeof(AudioStreamBasicDescription) == 40 && sizeof(AudioFormatListItem) == 44, "no padding");
_Static_assert(sizeof(AudioChannelLayout) == 12 && sizeof(AudioChannelDescription) == 20, "no padding");
_Static_assert(sizeof(AudioStreamPacketDescription) == 16 && sizeof(AudioBufferList) == 24, "of 64-bit hosts");
#endif

BR_END_DECLS

#endif
