/*
 * What the preloaded library and the vault service agree on. C and C++.
 *
 * Folder GUARD_RUN_DIR, owned by root, for every user N that has a vault and for root (N = 0):
 *   N.map    what that user's deletions are checked against; readable by that user only
 *   N.sock   local socket (SOCK_SEQPACKET) of that user's processes; usable by that user only
 * any.map and any.sock serve users that have neither.
 *
 * One connection a deletion:
 *   1. library: GuardRequest with two descriptors, the file (O_PATH) and its parent folder
 *   2. service: GuardAnswer
 *   3. library: the real call, then GuardDone (the service checks for itself what has happened)
 *
 * All numbers are in the byte order of the machine and of fixed width: 32-bit programs read the
 * same files.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define GUARD_RUN_DIR "/run/morvane-guard"
#define GUARD_ANY_USER 0xffffffffu /* The uid in any.map. */

/* A library refuses maps and answers of another version: then it protects nothing. */
#define GUARD_VERSION 1
#define GUARD_REQUEST_MAGIC 0x5147564du /* "MVGQ" */
#define GUARD_ANSWER_MAGIC 0x4147564du  /* "MVGA" */
#define GUARD_DONE_MAGIC 0x4447564du    /* "MVGD" */
#define GUARD_MAP_MAGIC 0x4d47564du     /* "MVGM" */

#define GUARD_NAME_SIZE 256 /* A name of at most 255 bytes, and a NUL. */
#define GUARD_ANSWER_WAIT_MS 200
#define GUARD_SILENCE_MS 5000 /* How long a process goes to the spool at once after a time-out. */

enum GuardKind {
    GuardDeletion = 1,
    GuardReplacement = 2 /* A rename over the file. */
};

struct GuardRequest
{
    uint32_t magic;
    uint16_t version;
    uint16_t kind; /* GuardKind */
    uint32_t nameLength;
    char name[GUARD_NAME_SIZE]; /* In the parent folder; any bytes but '/' and NUL. */
};

enum GuardVerdict {
    GuardKept = 1,
    GuardNotWanted = 2, /* Not protected, or not acceptable: delete it. */
    GuardFailed = 3     /* Protected, but the vault cannot take it now: use the spool. */
};

struct GuardAnswer
{
    uint32_t magic;
    uint16_t version;
    uint16_t verdict; /* GuardVerdict */
};

struct GuardDone
{
    uint32_t magic;
    int32_t error; /* errno of the real call, 0 for success. */
};

/*
 * Spool: a folder of the user, mode 0700, on the file system of the files. For an entry ID
 *   ID.path   symbolic link whose text is the absolute path that the file had; made first
 *   ID.file   hard link to the file
 * An entry is complete with both; ID holds no '.'.
 */
#define GUARD_SPOOL_PATH_SUFFIX ".path"
#define GUARD_SPOOL_FILE_SUFFIX ".file"

/*
 * Map file. Written under another name and renamed into place; its size never changes. After that
 * the writer sets `isReplaced` in the old file, which is what running programs have mapped.
 * The members up to `isReplaced` keep their places in every version.
 * Tables stand at offsets from the start of the file, paths and names without a NUL.
 */
#define GUARD_MAX_MAP_SIZE (4u * 1024 * 1024)
#define GUARD_EXTENSION_SIZE 32

enum GuardMapFlags {
    GuardMapEnabled = 1,     /* Else nothing is protected. */
    GuardMapReplacements = 2 /* Some owner wants replaced files kept. */
};

struct GuardTable
{
    uint32_t offset; /* Multiple of 8. */
    uint32_t count;
};

struct GuardMapHeader
{
    uint32_t magic;
    uint16_t version;
    uint16_t flags; /* GuardMapFlags */
    uint32_t size;  /* Of the whole file. */
    uint32_t uid;   /* Whose deletions it is for, or GUARD_ANY_USER. */
    uint32_t generation;
    uint32_t isReplaced;          /* Not 0: map the file again. */
    struct GuardTable extensions; /* GuardExtension; those of all owners, sorted. */
    struct GuardTable owners;     /* GuardOwner */
    struct GuardTable folders;    /* GuardFolder, sorted by path, then by owner. */
    struct GuardTable trashes;    /* GuardTrash */
    struct GuardTable spools;     /* GuardSpool */
};

/* Lower case (ASCII), without the dot in front, padded with NULs; at most 31 bytes. */
struct GuardExtension
{
    char text[GUARD_EXTENSION_SIZE];
};

/* A user whose vault takes what is deleted below the user's folders. */
struct GuardOwner
{
    uint32_t uid;
    uint32_t flags;               /* GuardMapReplacements */
    struct GuardTable extensions; /* GuardExtension, sorted. */
    struct GuardTable names;      /* GuardText: folder names that are left out, as ".git". */
};

struct GuardText
{
    uint32_t offset;
    uint32_t length;
};

enum GuardFolderKind { GuardProtected = 1, GuardLeftOut = 2 };

/* The longest path among an owner's folders decides. The root folder has an empty path. */
struct GuardFolder
{
    struct GuardText path; /* As the kernel reports it: no symbolic links, no '/' at the end. */
    uint32_t owner;        /* Index into the owners. */
    uint32_t kind;         /* GuardFolderKind */
};

/* A trash, or a folder in it (`files`, `expunged`). All that is deleted below is passed on. */
struct GuardTrash
{
    uint64_t device;
    uint64_t inode; /* 0: not known. */
    struct GuardText path;
};

/* Where the map's user puts files when the service is silent; one for each file system. */
struct GuardSpool
{
    uint64_t device;
    uint32_t uid; /* Owner of the folder and of the files that go there. */
    uint32_t reserved;
    struct GuardText path;
};

#ifdef __cplusplus
}
#endif
