/* zr_mp4.h - record, read and repair MP4 and QuickTime files.
 *
 * A recording, call by call:
 *   ZR_MP4_Create            opens the file and writes its head
 *   ZR_MP4_CreateTrack       once per track
 *   ZR_MP4_WriteFrame        once per frame, tracks interleaved by time
 *   ZR_MP4_AddAtom           own boxes, whenever they are known
 *   ZR_MP4_DestroyAllTracks  writes the movie box: now the file plays
 *   ZR_MP4_Destroy           closes the file and releases the handle
 * A recording that did not get as far as ZR_MP4_DestroyAllTracks and that had a backup unit is made playable, in
 * place, by ZR_MP4_RepairFile.
 *
 * Status codes. Every function answers 0 on success and one of the codes below otherwise; each failure was logged
 * through ZR_LOG_Printf (zr_log.h) where it was seen, except null arguments and ZR_ERR_MP4_ATOM_BUF.
 * ZR_ERR_MP4_NO_MEMORY can come from any function that takes memory. No C++ exception leaves the library.
 *
 * Threads. Different handles may be used from any number of threads. On one handle ZR_MP4_CreateTrack,
 * ZR_MP4_WriteFrame, ZR_MP4_AddAtom and ZR_MP4_DestroyAllTracks may be called from several threads at once. The
 * queries (ZR_MP4_GetTrackByIndex, ZR_MP4_GetAtom, ZR_MP4_GetFileInfo) must not overlap a write on the same
 * handle, and nothing may overlap ZR_MP4_Destroy of the same handle. Adding boxes,
 * finishing and destroying wait for each other in the whole process. The library has no threads of its own. A thread
 * must not be cancelled (pthread_cancel) inside a call.
 *
 * What survives a crash. With a backup unit, the configuration of the tracks goes to the file before the first
 * frame, every frame carries a private header, and at every multiple of the backup unit stands a snapshot of the
 * sample tables. A frame is safe
 *   - from a killed process once the kernel has it: at the latest when u32VBufSize bytes have followed it;
 *   - from a power loss once it was synced: before each snapshot, and in between when a frame comes and 4 MiB were
 *     written, or a second has passed both by the clock and by the time stamps; on a card where a sync takes more
 *     than 100 ms, up to every 64 MiB and 16 seconds.
 * Write-out is started behind the writer for every 256 KiB so that these syncs are short. With ZR_MP4_SYNC=off in the
 * environment when the file is created or repaired nothing is synced: a killed process loses no more than before, a
 * power loss may take everything that the kernel had not written by itself (30 seconds on a usual Linux).
 *
 * Choosing u32BackupUnit. A frame and the snapshot before it must fit between two multiples of the unit: take at
 * least four times the largest frame; 16 MiB suits most recordings. When a frame does not fit, it is written all
 * the same, but the frame after it is refused with ZR_ERR_MP4_WRITE_BACKUP; the recording can go on after that. */
#ifndef ZR_MP4_H
#define ZR_MP4_H

#include <stdint.h>

#if defined(__GNUC__)
#define ZR_API __attribute__((visibility("default")))
#else
#define ZR_API
#endif

/* Enumerations are 32 bits wide; in C++ any 32-bit value can be held, so that a wrong one can be refused. */
#ifdef __cplusplus
#define ZR_ENUM(name) enum name : uint32_t
#define ZR_NOEXCEPT noexcept
extern "C" {
#else
#define ZR_ENUM(name) enum name
#define ZR_NOEXCEPT
#endif

/* The version of the library; ZR_MP4_VERSION stands in the banner that every ZR_MP4_Create logs. */
#define ZR_MP4_VERSION_MAJOR 2
#define ZR_MP4_VERSION_MINOR 0
#define ZR_MP4_VERSION_PATCH 1
#define ZR_MP4_VERSION "2.0.1.0"

typedef uint8_t ZR_U8;
typedef uint16_t ZR_U16;
typedef uint32_t ZR_U32;
typedef uint64_t ZR_U64;
typedef int32_t ZR_S32;
typedef int64_t ZR_S64;

typedef ZR_U32 ZR_BOOL;
#define ZR_FALSE 0u
#define ZR_TRUE 1u

typedef uintptr_t ZR_MP4_HANDLE;       /* an open file, 0 means none */
typedef uintptr_t ZR_MP4_TRACK_HANDLE; /* a track of an open file, 0 means none; ends with the track */

/* Status codes */
#define ZR_ERR_MP4_NULL_PTR 0xA1298002u       /* a required pointer or handle is null */
#define ZR_ERR_MP4_ILLEGAL_PARAM 0xA1298041u  /* a configuration, track, frame or box was refused */
#define ZR_ERR_MP4_NO_MEMORY 0xA1298042u      /* memory is out */
#define ZR_ERR_MP4_OPEN 0xA1298043u           /* the file opened but the session could not be set up, or 32 are live */
#define ZR_ERR_MP4_CLOSE 0xA1298044u          /* the file could not be flushed, synced or closed */
#define ZR_ERR_MP4_WRITE_HEAD 0xA1298045u     /* not answered: ZR_ERR_MP4_OPEN is */
#define ZR_ERR_MP4_WRITE_TAIL 0xA1298046u     /* the movie box or what follows it could not be written */
#define ZR_ERR_MP4_HANDLE_INVALID 0xA1298048u /* not a live handle; a destroyed one's value may be given out again */
#define ZR_ERR_MP4_WRITE_BACKUP 0xA1298050u   /* a frame, or crash-safety data before it, could not be written */
#define ZR_ERR_MP4_REPAIR_MOOV 0xA1298051u    /* repair could not rebuild the movie box */
#define ZR_ERR_MP4_CREATE_TRACK 0xA1298052u   /* the track could not be created */
#define ZR_ERR_MP4_ATOM_NOT_FOUND 0xA1298054u /* no such box */
#define ZR_ERR_MP4_ATOM_DATA 0xA1298055u      /* the payload of a box could not be taken over */
#define ZR_ERR_MP4_ATOM_BUF 0xA1298056u       /* the caller's buffer is too small for the box */
#define ZR_ERR_MP4_NO_TRACK_CFG 0xA1298061u   /* the file has no usable movie header or track configuration */
#define ZR_ERR_MP4_OPEN_FILE 0xA1298063u      /* the path or descriptor could not be opened */
#define ZR_ERR_MP4_READ 0xA1298065u           /* not answered: ZR_ERR_MP4_OPEN is */
#define ZR_ERR_MP4_BACKUP 0xA1298067u         /* not answered: ZR_ERR_MP4_WRITE_BACKUP is */
#define ZR_ERR_MP4_FILE_SIZE 0xA1298069u      /* the file has reached the limit of its offset width */

#define ZR_MP4_BOX_MAX_DATALEN 512000u /* largest payload of ZR_MP4_AddAtom, bytes */

typedef ZR_ENUM(zrMP4_CONFIG_TYPE_E) {
    ZR_MP4_CONFIG_MUXER = 1,  /* create a file and write it */
    ZR_MP4_CONFIG_DEMUXER = 2 /* open an existing file and read it */
} zrMP4_CONFIG_TYPE_E;

typedef ZR_ENUM(zrMP4_FORMAT_PROFILE_E) {
    ZR_MP4_PROFILE_MP4 = 0, /* brands mp42 and isom */
    ZR_MP4_PROFILE_MOV = 1  /* brand "qt  " */
} zrMP4_FORMAT_PROFILE_E;

typedef ZR_ENUM(zrMP4_TRACK_TYPE_E) {
    ZR_MP4_TRACK_VIDEO = 1,
    ZR_MP4_TRACK_AUDIO = 2,
    ZR_MP4_TRACK_META = 3 /* timed metadata */
} zrMP4_TRACK_TYPE_E;

typedef ZR_ENUM(zrMP4_CODECID_E) {
    ZR_MP4_CODEC_H264 = 0,
    ZR_MP4_CODEC_H265 = 1,
    ZR_MP4_CODEC_RESERVED_2 = 2, /* refused */
    ZR_MP4_CODEC_PRORES_PROXY = 3,
    ZR_MP4_CODEC_PRORES_LT = 4,
    ZR_MP4_CODEC_PRORES_422 = 5,
    ZR_MP4_CODEC_PRORES_HQ = 6,
    ZR_MP4_CODEC_AAC = 7,
    ZR_MP4_CODEC_MP3 = 8,
    ZR_MP4_CODEC_RESERVED_9 = 9, /* refused */
    ZR_MP4_CODEC_G711A = 10,
    ZR_MP4_CODEC_G711U = 11,
    ZR_MP4_CODEC_META = 12
} zrMP4_CODECID_E;

typedef struct zrMP4_MUXER_CONFIG_S {
    ZR_U32 u32PreAllocUnit; /* file space reserved at a time, bytes: 0 (none) to 104857600 */
    ZR_U32 u32VBufSize;     /* write buffer, bytes: 1 to 5242880; 65536 keeps the loss of a killed process small */
    ZR_BOOL bCo64Flag;      /* ZR_TRUE, no other value: 64-bit chunk offsets, no 4 GiB limit */
    ZR_BOOL bConstantRate;  /* ZR_TRUE: each sample of a video or metadata track lasts time scale / frame rate ticks,
                             * rounded down (metadata divided by its speed too) */
    ZR_U32 u32BackupUnit;   /* bytes between snapshots: 0 (no crash safety) or 524288 to 524288000 */
    zrMP4_FORMAT_PROFILE_E enFormatProfile;
} zrMP4_MUXER_CONFIG_S;

typedef struct zrMP4_DEMUXER_CONFIG_S {
    ZR_U32 u32VBufSize; /* read buffer, bytes: 0 (the library chooses) to 5242880 */
} zrMP4_DEMUXER_CONFIG_S;

typedef struct zrMP4_CONFIG_S {
    char aszFileName[256]; /* path, at most 255 characters; may be empty when s32Fd is given */
    ZR_S32 s32Fd;          /* an open descriptor, or -1 (0 is one too). It wins over the name. The library
                            * works on a duplicate of its own, a muxer cuts the file to nothing and writes from its
                            * start; the caller closes its own descriptor, at any time. It must be able to seek, and
                            * loses O_APPEND. */
    zrMP4_CONFIG_TYPE_E enConfigType;
    union {
        zrMP4_MUXER_CONFIG_S stMuxerConfig;     /* ZR_MP4_CONFIG_MUXER */
        zrMP4_DEMUXER_CONFIG_S stDemuxerConfig; /* ZR_MP4_CONFIG_DEMUXER */
    };
} zrMP4_CONFIG_S;

typedef struct zrMP4_VIDEO_INFO_S {
    ZR_U32 u32Width;     /* pixels */
    ZR_U32 u32Height;    /* pixels */
    ZR_U32 u32BitRate;   /* bits per second, not 0 */
    ZR_U32 u32FrameRate; /* frames per second, not 0 */
    zrMP4_CODECID_E enCodecID;
} zrMP4_VIDEO_INFO_S;

typedef struct zrMP4_AUDIO_INFO_S {
    ZR_U32 u32Channels;       /* not 0; for AAC at most 6 */
    ZR_U32 u32SampleRate;     /* Hz, not 0; the track's time scale is best the same, and a multiple of it otherwise */
    ZR_U32 u32SamplePerFrame; /* audio samples in one frame, not 0: 1024 for AAC, 1152 for MP3 */
    ZR_U16 u16SampleSize;     /* bits per audio sample, not 0 */
    zrMP4_CODECID_E enCodecID;
} zrMP4_AUDIO_INFO_S;

typedef struct zrMP4_META_INFO_S {
    ZR_U32 u32Width;     /* pixels, only written into the track header */
    ZR_U32 u32Height;    /* pixels, only written into the track header */
    ZR_U32 u32FrameRate; /* samples per second, not 0 */
    zrMP4_CODECID_E enCodecID;
    ZR_U32 u32Reserved;
} zrMP4_META_INFO_S;

typedef struct zrMP4_TRACK_INFO_S {
    zrMP4_TRACK_TYPE_E enTrackType; /* selects the member of the union */
    ZR_U32 u32TimeScale;            /* ticks per second of the track's times, at least 1000. A track with 32-bit
                                     * offsets can last 2^32 ticks: 9.9 hours at 120000, 13.2 at 90000. */
    float fSpeed;                   /* playback speed, above 0 for video and metadata; 1.0 is normal */
    char aszHdlrName[256];          /* handler name, at most 255 characters; 254 where the library reads it back */
    union {
        zrMP4_VIDEO_INFO_S stVideoInfo;
        zrMP4_AUDIO_INFO_S stAudioInfo;
        zrMP4_META_INFO_S stMetaInfo;
    };
} zrMP4_TRACK_INFO_S;

typedef struct zrMP4_FRAME_DATA_S {
    ZR_U64 u64TimeStamp; /* presentation time, microseconds; frames are stored in the order given. Only differences
                          * within a video or metadata track count: every track starts at 0, and audio is as long as
                          * its samples. */
    ZR_U8* pu8DataBuffer;
    ZR_U32 u32DataLength; /* bytes */
    ZR_BOOL bKeyFrameFlag;
} zrMP4_FRAME_DATA_S;

typedef struct zrMP4_ATOM_INFO_S {
    ZR_U32 u32DataLen; /* payload, bytes, at most ZR_MP4_BOX_MAX_DATALEN for ZR_MP4_AddAtom */
    char aszType[5];   /* four characters and a NUL */
    ZR_U8* pu8DataBuf;
} zrMP4_ATOM_INFO_S;

typedef struct zrMP4_FILE_INFO_S {
    ZR_U32 u32Duration;    /* milliseconds; 0 until the movie box was written */
    char aszHdlrName[256]; /* handler name of the first track */
    ZR_BOOL bCo64Flag;
    ZR_U32 u32TrackNum; /* tracks with a handle: those of a file that cannot be read back are left out */
    ZR_U32 u32BackupUnit; /* bytes, 0 without crash safety */
} zrMP4_FILE_INFO_S;

/* Called once per track while the movie box is written, in creation order: u32TimeScale is the track's, and
 * *pu64Duration, in its ticks, may be changed. The result is ignored. It runs inside ZR_MP4_DestroyAllTracks with
 * the library's locks held and must not call the library. */
typedef ZR_U32 (*ZR_MP4_DURATION_CALLBACK)(ZR_MP4_HANDLE hMP4, ZR_U32 u32TimeScale, ZR_U64* pu64Duration);

/* Opens a file for writing (any old content is dropped) or for reading, and stores a handle in *phMP4.
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_ILLEGAL_PARAM (configuration), ZR_ERR_MP4_NO_MEMORY,
 *   ZR_ERR_MP4_OPEN (32 handles are live; empty or unreadable file; head not written),
 *   ZR_ERR_MP4_OPEN_FILE (path or descriptor)
 * On failure *phMP4 is untouched and nothing stays open. The handle belongs to the caller until ZR_MP4_Destroy.
 * Both structures stay the caller's and are not kept. Any thread. After a crash the name is in its directory. */
ZR_API ZR_U32 ZR_MP4_Create(ZR_MP4_HANDLE* phMP4, const zrMP4_CONFIG_S* pstMP4Cfg) ZR_NOEXCEPT;

/* Closes the file and releases the handle, also when it answers a failure. It does not write the movie box: call
 * ZR_MP4_DestroyAllTracks before. When pu64Duration is not null it receives the movie's duration in milliseconds.
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_HANDLE_INVALID, ZR_ERR_MP4_CLOSE
 * No other call on this handle may be in progress. A written file is synced before it is closed. */
ZR_API ZR_U32 ZR_MP4_Destroy(ZR_MP4_HANDLE hMP4, ZR_U64* pu64Duration) ZR_NOEXCEPT;

/* Ends a recording: writes the movie box, the boxes added at "/" and the size of the media data, and releases the
 * tracks. fnDuration may be null. A second call does nothing.
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_HANDLE_INVALID; otherwise 0, whatever became of the writing: a failure is
 *   logged, the tracks stay, and the call can be repeated, for example when space was made on the card. Frames
 *   are refused from then on. ZR_MP4_GetAtom(h, "/moov/trak", ...) answering ZR_ERR_MP4_ATOM_NOT_FOUND tells that all
 *   went well: the tracks are gone. A recording without tracks gets no movie box.
 * Any thread. Once the tracks are gone and ZR_MP4_Destroy has returned 0, the file plays and, with syncing on,
 * survives a power loss. */
ZR_API ZR_U32 ZR_MP4_DestroyAllTracks(ZR_MP4_HANDLE hMP4, ZR_MP4_DURATION_CALLBACK fnDuration) ZR_NOEXCEPT;

/* Adds a track to a recording and stores its handle. Tracks may be added while frames of others are written, but
 * only tracks that exist before the first frame and before the first box that is added after a track, and no more
 * than six, can be repaired after a cut: a later or seventh one is recorded, with a notice in the log.
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_HANDLE_INVALID, ZR_ERR_MP4_ILLEGAL_PARAM (description),
 *   ZR_ERR_MP4_CREATE_TRACK (not a recording, already finished, or memory is out)
 * The description stays the caller's; the track handle ends with ZR_MP4_DestroyAllTracks. Any thread. */
ZR_API ZR_U32 ZR_MP4_CreateTrack(ZR_MP4_HANDLE hMP4, ZR_MP4_TRACK_HANDLE* phTrack,
                                 const zrMP4_TRACK_INFO_S* pstTrackInfo) ZR_NOEXCEPT;

/* Writes one encoded frame. H.264 and H.265: an access unit with start codes, beginning with one, parameter sets
 * included where the encoder gives them; at most 31 NAL units; a key frame needs an IDR slice and known parameter
 * sets. ProRes: one whole frame. AAC: one frame with its ADTS header, which is not stored. MP3, G.711, metadata:
 * as it is. Frames of one track come in decoding order, which must be presentation order. An empty video or
 * metadata frame (null, 0) is a sample without bytes.
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_HANDLE_INVALID,
 *   ZR_ERR_MP4_ILLEGAL_PARAM  not a track of this recording, the recording is finished, or the frame is malformed
 *   ZR_ERR_MP4_WRITE_BACKUP   the frame cannot be decoded from here (key frame without parameter sets or IDR
 *                             slice, more parameter sets than fit), or it or its crash-safety data could not be
 *                             written
 *   ZR_ERR_MP4_NO_MEMORY      its table entries found no memory
 *   ZR_ERR_MP4_FILE_SIZE      the file has reached its limit: finish it. The frame is written, unless it would
 *                             begin beyond 4 GiB in a file with 32-bit offsets
 * A refused frame leaves nothing behind but the parameter sets that it brought, and the recording can go on. The
 * bytes are in the library's buffer or the kernel's when the call returns; the caller keeps its own. Frames of several
 * tracks may come from several threads and are stored in the order of arrival. For what survives a crash see the top
 * of this file. */
ZR_API ZR_U32 ZR_MP4_WriteFrame(ZR_MP4_HANDLE hMP4, ZR_MP4_TRACK_HANDLE hTrack,
                                const zrMP4_FRAME_DATA_S* pstFrameData) ZR_NOEXCEPT;

/* Adds a box of the caller's to a recording: at "/" it follows the movie box, at a path such as "/moov" or
 * "/moov/trak[0]" it becomes the last child there. The path is at most 64 characters long and starts with "/".
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_HANDLE_INVALID,
 *   ZR_ERR_MP4_ILLEGAL_PARAM (path, type, length, no such parent, not recording; ftyp, mdat, mvhd, tkhd, mdhd,
 *   hdlr, smhd, dinf, dref or stbl anywhere in the path, or ftyp, mdat or moov as the type), ZR_ERR_MP4_NO_MEMORY,
 *   ZR_ERR_MP4_ATOM_DATA
 * Path and payload are copied. Any thread. With a backup unit a copy goes into the media data, so that repair
 * restores the box; when that copy fails the box stands all the same, with a message in the log. */
ZR_API ZR_U32 ZR_MP4_AddAtom(ZR_MP4_HANDLE hMP4, const char* pszAtomPath,
                             const zrMP4_ATOM_INFO_S* pstAtomInfo) ZR_NOEXCEPT;

/* Describes the track with this 0-based index and stores its handle (0 for a track that cannot be read back).
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_HANDLE_INVALID,
 *   ZR_ERR_MP4_ILLEGAL_PARAM (no such track, a track of a recording that is not finished, or a movie that is 0
 *   long: one of audio or metadata alone)
 * A codec that the library does not know, and that of metadata, is told as 13.
 * Bit rate is that of the whole file, frame rate the average; speed and samples per frame of audio are known only
 * for files recorded with a backup unit (else 1.0 and left as they are). Must not overlap a write on the handle. */
ZR_API ZR_U32 ZR_MP4_GetTrackByIndex(ZR_MP4_HANDLE hMP4, ZR_U32 u32Index, zrMP4_TRACK_INFO_S* pstTrackInfo,
                                     ZR_MP4_TRACK_HANDLE* phTrack) ZR_NOEXCEPT;

/* Copies the payload of a box, for example "/moov/udta" or "/moov/trak[1]/mdia/hdlr", into the caller's buffer.
 * Call it with u32DataLen 0 and pu8DataBuf null to learn the length.
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_HANDLE_INVALID,
 *   ZR_ERR_MP4_ILLEGAL_PARAM (path not 5 to 64 characters, or "/mdat"), ZR_ERR_MP4_ATOM_NOT_FOUND,
 *   ZR_ERR_MP4_ATOM_BUF (u32DataLen now holds the length needed), ZR_ERR_MP4_NO_MEMORY
 * On success u32DataLen and aszType are those of the box. Must not overlap a write on the handle. */
ZR_API ZR_U32 ZR_MP4_GetAtom(ZR_MP4_HANDLE hMP4, const char* pszAtomPath,
                             zrMP4_ATOM_INFO_S* pstAtomInfo) ZR_NOEXCEPT;

/* Describes the file.
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_HANDLE_INVALID, ZR_ERR_MP4_ATOM_NOT_FOUND (no track)
 * Must not overlap a write on the handle. */
ZR_API ZR_U32 ZR_MP4_GetFileInfo(ZR_MP4_HANDLE hMP4, zrMP4_FILE_INFO_S* pstFileInfo) ZR_NOEXCEPT;

/* Makes a recording that was cut off playable, in place: joins its snapshots, recovers the frames after the last
 * one, writes the movie box and cuts the file behind it. bParseExtraFrame false drops the frames after the last
 * snapshot (they are recovered all the same when there is no snapshot). The path has at most 255 characters.
 *   ZR_ERR_MP4_NULL_PTR, ZR_ERR_MP4_ILLEGAL_PARAM (path too long), ZR_ERR_MP4_NO_MEMORY,
 *   ZR_ERR_MP4_OPEN_FILE (cannot be opened, or not such a file), ZR_ERR_MP4_ATOM_NOT_FOUND (recorded without a
 *   backup unit, or cut before anything of the first frame was there), ZR_ERR_MP4_NO_TRACK_CFG (cut inside the
 *   configuration of the tracks, in front of the first frame), ZR_ERR_MP4_CREATE_TRACK, ZR_ERR_MP4_REPAIR_MOOV,
 *   ZR_ERR_MP4_WRITE_TAIL
 * A finished file with backups is left alone and answered with 0; one whose frames were all cut off is repaired,
 * and then holds its tracks and no sample. Only what cannot be kept is overwritten, so a
 * repair that was itself cut off can be repeated. No other process or handle may have the file open. */
ZR_API ZR_U32 ZR_MP4_RepairFile(const char* pszFileName, ZR_BOOL bParseExtraFrame) ZR_NOEXCEPT;

/* Statistics records. An application may keep one record beside each muxer and each track, and show its figures;
 * the library does not feed them. Records are memory of the library: free them with MP4_PROC_Remove and
 * MP4_PROC_DestroyTrack. Adding, removing and the two update functions may be called from any thread; a record is
 * fed and read by one thread. The links belong to the library. */
typedef struct zrMP4_PROC_TRACK_S {
    ZR_S32 seq; /* 1 for the muxer's first track */
    ZR_U32 frameCount;
    ZR_U64 firstPts; /* microseconds, the first time stamp that is not 0 */
    zrMP4_TRACK_TYPE_E trackType;
    zrMP4_CODECID_E codecId;
    struct zrMP4_PROC_TRACK_S* next;
    struct zrMP4_PROC_TRACK_S* prev;
} zrMP4_PROC_TRACK_S;

typedef struct zrMP4_PROC_MUXER_S {
    struct zrMP4_PROC_MUXER_S* next;
    struct zrMP4_PROC_MUXER_S* prev;
    char name[256];            /* aszFileName of the configuration */
    ZR_U32 preAllocUnit;       /* bytes */
    ZR_U32 videoWidth;         /* of the last video track registered, pixels */
    ZR_U32 videoHeight;        /* pixels */
    float videoSpeed;          /* its fSpeed */
    ZR_U32 audioSampleRate;    /* of the last audio track registered, Hz */
    ZR_U32 audioSamplesPerFrame;
    ZR_S32 trackSeq;           /* track records ever created */
    ZR_U32 lastFrameSize;      /* bytes, from the last MP4_PROC_WriteFrame */
    ZR_U64 lastFrameValue;     /* the caller's value, from the last MP4_PROC_WriteFrame */
    ZR_U64 maxWriteTime;       /* largest value of MP4_PROC_UpdateWriteTime; read both when no update runs */
    ZR_U64 maxAllocTime;       /* largest value of MP4_PROC_UpdateAllocTime */
    zrMP4_PROC_TRACK_S tracks; /* head of a circular list of this muxer's track records */
} zrMP4_PROC_MUXER_S;

/* Do nothing and answer 0. */
ZR_API ZR_U32 MP4_PROC_Init(void) ZR_NOEXCEPT;
ZR_API ZR_U32 MP4_PROC_DelInit(void) ZR_NOEXCEPT;

/* Makes a record for a muxer of this configuration. ZR_ERR_MP4_NULL_PTR; (ZR_U32)-1 when memory is out. */
ZR_API ZR_U32 MP4_PROC_Add(zrMP4_PROC_MUXER_S** ppstMuxer, const zrMP4_CONFIG_S* pstMP4Cfg) ZR_NOEXCEPT;

/* Frees a muxer's record; its track records are not freed. ZR_ERR_MP4_NULL_PTR; 0 also for an unknown record. */
ZR_API ZR_U32 MP4_PROC_Remove(zrMP4_PROC_MUXER_S* pstMuxer) ZR_NOEXCEPT;

/* Makes a record for a track. ZR_ERR_MP4_NULL_PTR; (ZR_U32)-1 when memory is out. */
ZR_API ZR_U32 MP4_PROC_CreateTrack(zrMP4_PROC_MUXER_S* pstMuxer, zrMP4_PROC_TRACK_S** ppstTrack,
                                   const zrMP4_TRACK_INFO_S* pstTrackInfo) ZR_NOEXCEPT;

/* Frees all track records of a muxer. ZR_ERR_MP4_NULL_PTR. */
ZR_API ZR_U32 MP4_PROC_DestroyTrack(zrMP4_PROC_MUXER_S* pstMuxer) ZR_NOEXCEPT;

/* Notes one frame: size in bytes, time stamp in microseconds, and any value of the caller's. A track that is not
 * this muxer's, or null, is passed over. ZR_ERR_MP4_NULL_PTR for a null muxer. */
ZR_API ZR_U32 MP4_PROC_WriteFrame(zrMP4_PROC_MUXER_S* pstMuxer, zrMP4_PROC_TRACK_S* pstTrack, ZR_U64 u64Pts,
                                  ZR_U32 u32FrameSize, ZR_U64 u64Value) ZR_NOEXCEPT;

/* Raise the largest write or allocation time of the muxer with this name. Always 0. */
ZR_API ZR_U32 MP4_PROC_UpdateWriteTime(const char* pszName, ZR_U64 u64Time) ZR_NOEXCEPT;
ZR_API ZR_U32 MP4_PROC_UpdateAllocTime(const char* pszName, ZR_U64 u64Time) ZR_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* ZR_MP4_H */
