/**
 * @file
 * zel: flexible bodies for multibody dynamics.
 *
 * One ZELDATA record holds one flexible body: finite-element nodes with their masses, faces, modes (mode shapes, modal
 * stress and modal strain), generalized matrices, inertia invariants, loads and units. A body is built through the
 * setters and written, or created from a ZEL file and queried.
 *
 * Conventions
 *   - C linkage, usable from C99 and C++. int has 32 bits. Every function takes the database first.
 *   - 1 means success and 0 failure unless said otherwise; -1 is a failed index lookup, null a failed pointer result.
 *   - A "number" or "id" is the caller's own; an "index" is dense and counts from 0.
 *   - A kind is 0 (mode shapes), 1 (modal stress) or 2 (modal strain). Any other kind gives the failure value.
 *   - Arrays that a function returns are new, owned by the caller and freed with free(). Arrays that the caller passes
 *     stay the caller's; they are written only where the parameter is an output.
 *   - 3x3 matrices are 9 doubles, row by row.
 *   - Values are in the database's own units (ZEL_SetUnits); rotations are in radians.
 *   - Messages: the function that finds a fault reports it through ZEL_Error and returns its failure value; the database
 *     keeps what it had. Nothing is thrown. Numbers in messages follow the host program's LC_NUMERIC locale.
 *   - Threads: different databases may be used by different threads at the same time, also to make, open and free them. One
 *     database serves one thread at a time; only functions that take it as const ZELDATA* may be called by several, while
 *     no other function works on it. ZEL_CreateFromZEL gives two callers of one path the same database: a thread that
 *     wants its own reads the file by ZEL_Create(0, 0) and ZEL_ReadZEL. ZEL_Terminate, the Fortran entry points and the
 *     time monitor are for one thread. A call may use helper threads, which end before it returns; all signals are
 *     blocked there, so that no handler of the host program runs on one. Handlers of messages and progress are called by
 *     the thread that called the library.
 *
 * Functions marked "silent" print nothing when they fail.
 */
#ifndef ZEL_H
#define ZEL_H

#include <stdint.h>
#include <stdio.h>

#if defined(__GNUC__)
#define ZEL_API __attribute__((visibility("default")))
#define ZEL_PRINTF __attribute__((format(printf, 1, 2)))
#else
#define ZEL_API
#define ZEL_PRINTF
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Records ------------------------------------------------------------------------------------------------------ */

enum
{
    ZEL_MODE_SHAPE = 0,   /* translations x, y, z and rotations about x, y, z */
    ZEL_MODAL_STRESS = 1, /* stress components x, y, z, xy, xz, yz */
    ZEL_MODAL_STRAIN = 2, /* strain components x, y, z, xy, xz, yz; shears are engineering shears */
    ZEL_MODE_KINDS = 3
};

/*
 * Blocks of a file by number. ZEL_Exists, ZEL_goto_block and ZEL_size_of_block take the number less one, ZEL_Contents takes
 * the number itself.
 */
enum
{
    ZEL_BLOCK_VERSION = 1,    /* version code */
    ZEL_BLOCK_HEADER,         /* title, date and origin of the data */
    ZEL_BLOCK_SUMMARY,        /* content summary */
    ZEL_BLOCK_NODES,          /* node ids and coordinates */
    ZEL_BLOCK_TOPOLOGY,       /* element topology, as of old */
    ZEL_BLOCK_BODY,           /* mass properties of the body */
    ZEL_BLOCK_EIGENVALUES,    /* mode numbers and eigenvalues */
    ZEL_BLOCK_MODES,          /* mode shapes */
    ZEL_BLOCK_MASSES,         /* nodal masses */
    ZEL_BLOCK_INERTIAS,       /* nodal inertias */
    ZEL_BLOCK_UNITS,          /* unit labels */
    ZEL_BLOCK_STIFFNESS,      /* generalized stiffness */
    ZEL_BLOCK_MASS,           /* generalized mass */
    ZEL_BLOCK_FACES,          /* element faces */
    ZEL_BLOCK_DAMPING,        /* generalized damping */
    ZEL_BLOCK_TRANSFORMATION, /* mode shape transformation */
    ZEL_BLOCK_INTERFACE,      /* interface nodes */
    ZEL_BLOCK_STRESS,         /* modal stress */
    ZEL_BLOCK_INVAR1,         /* inertia invariant 1 */
    ZEL_BLOCK_INVAR2,         /* inertia invariant 2 */
    ZEL_BLOCK_INVAR3,         /* inertia invariant 3 */
    ZEL_BLOCK_INVAR4,         /* inertia invariant 4 */
    ZEL_BLOCK_INVAR5,         /* inertia invariant 5 */
    ZEL_BLOCK_INVAR7,         /* inertia invariant 7 */
    ZEL_BLOCK_INVAR8,         /* inertia invariant 8 */
    ZEL_BLOCK_INVAR9,         /* inertia invariant 9 */
    ZEL_BLOCK_PRELOAD,        /* modal preload */
    ZEL_BLOCK_LOADS,          /* modal loads */
    ZEL_BLOCK_STRAIN,         /* modal strain */
    ZEL_BLOCK_STATISTICS,     /* modal statistics */
    ZEL_BLOCK_PRE_STRESS,     /* nodal pre-stress */
    ZEL_BLOCK_PRE_STRAIN,     /* nodal pre-strain */
    ZEL_BLOCKS = ZEL_BLOCK_PRE_STRAIN
};

enum
{
    ZEL_FACE_VERTICES = 0x3FFFFFFF /* the vertex count in the word in front of a face; its other bits are flags */
};

/* One open file and how its values are encoded. */
typedef struct ZELSTREAM
{
    FILE* file;               /* null: none is open */
    int xdr;                  /* 1 portable (XDR, RFC 4506), 0 native byte order */
    void* xdr_stream;         /* owned by zel_file; the mode streams of a database that was read only borrow it */
    int double_precision;     /* 1 reals are doubles, 0 floats */
    char* name;               /* owned path; that of a temporary file leads nowhere by now, or to somebody else's */
    float* conversion_buffer; /* copy of ZELDATA.conversion_buffer, not owned */
    int temporary;            /* 1: a file without a name, which goes when it is closed (mode streams only) */
} ZELSTREAM;

/* A finite-element node. */
typedef struct ZELNODE
{
    int id;          /* the caller's */
    double x, y, z;  /* coordinates */
    double mass;     /* lumped at the node */
    double* inertia; /* owned 6: xx yy zz xy xz yz, or null: the node has no inertia */
} ZELNODE;

/* Element of the identifier indexes, which are sorted by their first integer. */
typedef struct ZELIDPAIR
{
    int id;    /* what is looked up */
    int index; /* what it stands for */
} ZELIDPAIR;

/* Entry of a sparse generalized matrix. */
typedef struct ZELENTRY
{
    int row;      /* mode index; -1: the mode could not be added */
    int column;   /* the same */
    double value; /* of several entries of one place the last one holds */
} ZELENTRY;

/* A sparse generalized matrix. */
typedef struct ZELMATRIX
{
    int count;         /* entries that there are */
    int capacity;      /* entries that there is room for */
    ZELENTRY* entries; /* owned */
} ZELMATRIX;

/* What an eigenvalue block has of one mode. */
typedef struct ZELEIGEN
{
    /* [0] mode number, [1] eigenvalue, [2] frequency in cycles and [3] in radians per time unit, [4] generalized mass,
     * [5] generalized stiffness */
    double value[6];
} ZELEIGEN;

/* Modal loads of one case. */
typedef struct ZELLOADCASE
{
    char label[256]; /* its name */
    int processed;   /* 1: the first six components are the resultant force and moment on the principal axes */
    double* values;  /* owned; load_capacity doubles, of which one a mode is used */
} ZELLOADCASE;

/* A largest value and where it is. */
typedef struct ZELSTATPAIR
{
    int node_id;  /* of the node that has it */
    double value; /* its magnitude */
} ZELSTATPAIR;

/* The largest values of a mode: translation, rotation, von Mises stress, von Mises strain. */
typedef struct ZELSTATISTICS
{
    ZELSTATPAIR pair[13]; /* in this order; zero from [4] on */
} ZELSTATISTICS;

/* One node's pre-stress or pre-strain. */
typedef struct ZELSIX
{
    double v[6]; /* x, y, z, xy, xz, yz */
} ZELSIX;

/* Row of a unit table. */
typedef struct ZELUNIT
{
    char label[16]; /* canonical label; empty: the table ends here */
    double factor;  /* so many kilograms, newtons, metres or seconds are one unit */
} ZELUNIT;

/* The units of a body. */
typedef struct ZELUNITS
{
    double mass_scale, length_scale, time_scale, force_scale; /* ratios of the last change, old/new; 1.0 at creation */
    char mass[16], length[16], time[16], force[16];           /* canonical labels; all empty: no units yet */
} ZELUNITS;

/* The record of one body. Callers may read it; they change it only through the functions below. */
typedef struct ZELDATA ZELDATA;
/* What a record has. */
struct ZELDATA
{
    ZELDATA* next;                                 /* next live database */
    ZELSTREAM zel_file;                            /* the file that the database was read from */
    ZELSTREAM mode_file, stress_file, strain_file; /* where the mode vectors of each kind are */
    float* conversion_buffer;                      /* owned */
    int non_diagonal;  /* 1: an off-diagonal generalized mass or stiffness entry was stored */
    int non_unit_mass; /* 1: a diagonal generalized mass differs from 1 */
    ZELUNITS units;    /* in which all values of the record are */
    int version;       /* whole version code of the file that was read; 31 at creation */
    char title[128], date[32], input_file_name[128], input_file_type[16]; /* texts of the header */
    char comment1[80], comment2[80], comment3[80];                        /* the same */
    char content_flags[100];                       /* which blocks have data, laid out as a file's content summary */
    int node_count, node_capacity, max_mode_nodes; /* nodes; nodes that there is room for, here and in mode vectors */
    ZELNODE* nodes;                                /* owned */
    ZELNODE** mode_nodes[3];              /* owned, node_capacity: the nodes of each kind's mode vectors, in order */
    ZELIDPAIR* node_id_index;             /* owned: (node id, node index), ascending after ZEL_NodeIndex */
    ZELIDPAIR* mode_node_id_index[3];     /* (node id, position in mode_nodes[kind]); [0] is node_id_index itself */
    double total_mass, center_of_mass[3]; /* global properties, set or summed over the nodes */
    double inertia_tensor[9];             /* off-diagonals are products of inertia, opposite to the tensor's */
    int mode_count, mode_node_count[3], max_modes;   /* modes; nodes of each kind; modes that there is room for */
    int eigenvalue_count;                            /* eigenvalue records without the one behind */
    ZELEIGEN* eigenvalues;                           /* owned, eigenvalue_count + 1 records, the last one zero */
    double* transformation;                          /* owned, [i*n + k] component of new mode i on old mode k */
    int* mode_ids;                                   /* owned, max_modes: mode number of each mode index */
    int64_t* mode_positions[3];                      /* owned, max_modes: where each mode's record starts in its file */
    int cached_mode[3];                              /* mode index whose vector is in mode_buffer, -1: none */
    double* mode_buffer[3];                          /* owned, 6 a node */
    ZELMATRIX stiffness, mass, damping;              /* generalized */
    int face_count, face_list_length, face_capacity; /* faces; integers in face_list; integers that it has room for */
    int* face_list;                                  /* owned: per face its vertex count, then node indexes */
    int interface_count, interface_capacity;         /* interface nodes that there are, and that there is room for */
    int* interface_nodes;                            /* owned: node indexes */
    double *invar1, *invar2, *invar3, *invar4, **invar5, *invar7, **invar8, ***invar9; /* owned */
    int* geometry_nodes;             /* owned: cache of ZEL_GeometryNodes */
    int load_case_count;             /* length of load_cases */
    ZELLOADCASE* load_cases;         /* owned */
    double* modal_preload;           /* owned */
    int principal_axes_done;         /* 1: the preload is projected on the principal axes */
    ZELSTATISTICS* modal_statistics; /* owned */
    ZELSIX* pre_stress;              /* owned: record p belongs to mode_nodes[1][p] */
    int pre_stress_capacity;         /* records that pre_stress has room for */
    ZELSIX* pre_strain;              /* owned: record p belongs to mode_nodes[2][p] */
    int pre_strain_capacity;         /* records that pre_strain has room for */
    int64_t block_offset[33];        /* [i] start of block i + 1 in zel_file, [32] the end of the file */
    char file_flags[100];            /* content flags as read, never raised by a setter */
    int64_t file_size;               /* bytes of zel_file when it was opened */
    double base_scale[4];            /* mass, length, time, force: product of all unit changes */
    double mode_factor[3];           /* stored mode values times this are in current units; kind 0: translations */
    int mode_record_nodes[3];        /* nodes that one stored mode record has room for */
    int mode_buffer_nodes[3];        /* nodes that mode_buffer has room for */
    char invar_origin[10];           /* [n] of invariant n: 0 none, 1 computed, 2 set by the caller, 3 read */
    int invar_modes;                 /* mode count that invariants 3 to 9 were made for */
    int damping_projected;           /* 1: damping is projected on the principal axes */
    int transformation_order;        /* n of the transformation, which is n x n */
    int modal_statistics_count;      /* length of modal_statistics */
    int geometry_node_count;         /* length of geometry_nodes */
    int load_capacity;               /* doubles in every load vector and in the preload */
    int selected_count;              /* length of selected_modes */
    ZELIDPAIR* selected_modes;       /* owned: (mode number, exported number) */
    void* private_data;              /* owned: the library's own caches */
};

/* ---- Messages and progress ---------------------------------------------------------------------------------------- */

/* Severity of a message. */
enum
{
    ZEL_MESSAGE_INFO = 0,    /* what an operation does and has found */
    ZEL_MESSAGE_WARNING = 1, /* the operation goes on */
    ZEL_MESSAGE_ERROR = 2    /* why an operation fails, or cannot do a part of what was asked */
};

/**
 * Print a formatted message, cut after 999 characters. Every line of it, an empty last one included, starts with the
 * severity's prefix: "ERROR:  " and "WARNING:  " on standard error, none on standard output for information.
 * Return what the last fprintf returned. With a message handler nothing is printed, and the length of the text returned.
 */
ZEL_API int ZEL_Error(const char* format, ...) ZEL_PRINTF;
ZEL_API int ZEL_Warning(const char* format, ...) ZEL_PRINTF;
ZEL_API int ZEL_Info(const char* format, ...) ZEL_PRINTF;

/**
 * Takes one message. It gets the text as it was formatted, at most 999 characters, without a prefix: a message of several
 * lines comes in one call, with newlines between and, where the message has one, at its end. The text is the library's and
 * lasts for the call. A failing operation may send more than one message of severity ZEL_MESSAGE_ERROR: what failed, then
 * why. A handler neither calls the library nor throws nor jumps out.
 */
typedef void (*ZELMESSAGEHANDLER)(void* context, int severity, const char* text);

/**
 * Sets where the messages of the calling thread go: all that the library, or the thread itself, reports through ZEL_Error,
 * ZEL_Warning and ZEL_Info. Each thread begins without a handler and has its own.
 * handler  called with `context` for each message; null: standard error and output, as described above
 * Returns the handler before, null: none. A scope that wants the messages for itself asks ZEL_MessageHandler for handler and
 * context, sets its own, and sets the former again at its end: no stream has to be turned aside.
 * With a handler the library prints nothing by itself. What a caller asks for is printed still: ZEL_Contents, the report of
 * ZEL_Compare (ZEL_CompareBodies prints none), ZEL_TimeMonitorStamp and the times of ZEL_localtime_ISO8601.
 */
ZEL_API ZELMESSAGEHANDLER ZEL_SetMessageHandler(ZELMESSAGEHANDLER handler, void* context);

/** The message handler of the calling thread, null: none, and its context; context may be null. To put it back later. */
ZEL_API ZELMESSAGEHANDLER ZEL_MessageHandler(void** context);

/**
 * Takes the progress of a long operation, some ten times a second at most.
 * done, total  how far the present phase is, 0 <= done <= total; an operation may have several phases, each from 0 on
 * Returns 0, or anything else to end the operation: it fails then, with the message "The operation was ended on request.",
 * and leaves database and files as it does at any other failure. A step that cannot be interrupted (a factorisation, bringing
 * a file to the disk) is finished first. A handler neither calls the library nor throws nor jumps out.
 */
typedef int (*ZELPROGRESSHANDLER)(void* context, double done, double total);

/**
 * Sets who is told the progress of the long operations that the calling thread calls: writing, reading, comparing,
 * coarsening, sums over all modes for inertia invariants, projections and coupling masses. Each thread begins without a
 * handler and has its own; threads of the library never call one.
 * handler  called with `context`, the first time at once; null: nobody
 * Returns the handler before, null: none. With a handler, or with one for messages, ZEL_write_ZEL no longer shows its progress
 * on a terminal by itself.
 */
ZEL_API ZELPROGRESSHANDLER ZEL_SetProgressHandler(ZELPROGRESSHANDLER handler, void* context);

/** The progress handler of the calling thread, null: none, and its context; context may be null. */
ZEL_API ZELPROGRESSHANDLER ZEL_ProgressHandler(void** context);

/** Starts the progress monitor of an operation of `total_steps` steps. */
ZEL_API void ZEL_TimeMonitor(int total_steps);

/**
 * Counts one step as done and prints, over the previous such line, the percentage done, the seconds left and the
 * estimated total. The estimate is a running average that halves the weight of older steps.
 */
ZEL_API void ZEL_TimeMonitorStamp(void);

/* ---- Lifetime ------------------------------------------------------------------------------------------------------ */

/**
 * A new, empty database at the end of the process's list.
 * max_mode_nodes  room for so many nodes in each stored mode vector; below 1: none
 * max_modes       room for so many modes; below 1: none
 * Null, silently, when memory is short. Freed by ZEL_UnLink or ZEL_Terminate.
 */
ZEL_API ZELDATA* ZEL_Create(int max_mode_nodes, int max_modes);

/**
 * The database of the ZEL file `path`: the live one that was read from the very same path, or a new one that keeps the
 * file open for as long as it lives. Two callers of one path share one record: a unit change or ZEL_UnLink by one holds
 * for both, also when another file has taken the path meanwhile: unlink the record to read that one. Null for a null path
 * or a file that cannot be opened (silent), or that is no valid ZEL file (with a message).
 */
ZEL_API ZELDATA* ZEL_CreateFromZEL(const char* path);

/** Does nothing: a database ends only through ZEL_UnLink or ZEL_Terminate. */
ZEL_API void ZEL_Destroy(ZELDATA* db);

/**
 * Makes room in a body that grows beyond what ZEL_Create was told: for so many nodes in each stored mode vector and so many
 * modes. Room never shrinks; numbers below the present ones ask for nothing. Temporary mode files that are open grow at
 * once: by modes at their end, by nodes into new files, with a copy of all vectors. So ask for the nodes of the whole body.
 * Returns 1; 0, with a message and with the database as it was, for a null database, for more modes beside those that lie in
 * a ZEL file, or when disk or memory is short.
 */
ZEL_API int ZEL_MakeRoom(ZELDATA* db, int max_mode_nodes, int max_modes);

/** Frees one database with its arrays, streams and temporary files. Null and unknown pointers are ignored. */
ZEL_API void ZEL_UnLink(ZELDATA* db);

/** Frees every database. Temporary files go in any case when the process ends, however it does. */
ZEL_API void ZEL_Terminate(void);

/** 1 when db is a live database, also for a pointer that was freed or never was one; silent. */
ZEL_API int CheckZEL(const ZELDATA* db);

/* ---- Geometry and mass --------------------------------------------------------------------------------------------- */

/*
 * Nodes are named by the caller's id, any integer; a setter that names an unknown node adds it at the origin, without
 * mass. Values that are not finite are refused with a message and change nothing. Setting coordinates, masses or inertias
 * drops the inertia invariants that were computed from the old ones, but none that was set or read.
 */

/**
 * Stores the header texts with the current local date and prints each text through ZEL_Info. Longest texts: title and
 * input file name 127, file type 15, comments 79 characters; a longer one is cut with a warning. Newlines become blanks,
 * in the caller's text too; a text without newlines may be a constant. A null text counts as empty;
 * the texts may be those of the record.
 */
ZEL_API int ZEL_SetHeader(ZELDATA* db, char* title, char* input_file_name, char* input_file_type, char* comment1,
                          char* comment2, char* comment3);

/** Moves a node. */
ZEL_API int ZEL_SetNodeCoordinates(ZELDATA* db, int node_id, double x, double y, double z);

/** Replaces a nodal mass, or adds to it. */
ZEL_API int ZEL_SetNodalMass(ZELDATA* db, int node_id, double mass);
ZEL_API int ZEL_AddNodalMass(ZELDATA* db, int node_id, double mass);

/** Replaces a nodal inertia, given as tensor components about the node (off-diagonals are minus the products of inertia). */
ZEL_API int ZEL_SetNodalInertia(ZELDATA* db, int node_id, double xx, double yy, double zz, double xy, double xz,
                                double yz);

/**
 * Replaces one component of a nodal inertia, and with it the symmetric one; the others stay, at first zero. Row and column
 * count from 1 to 3, or both from 4 to 6 as the rotations of the node.
 */
ZEL_API int ZEL_SetNodalInertiaEntry(ZELDATA* db, int node_id, int row, int column, double value);

/**
 * Stores total mass, center of mass and inertia (3x3) of the body. Off-diagonals of the stored inertia are products of
 * inertia, with the sign opposite to the tensor's; see ZEL_TotalMassInertia. Each of the three draws a warning when it
 * differs by more than 1e-8 (relative to values above 1) from invariants 1, 2 and 7 as set, read or summed over the nodes.
 * Invariant 7 is the tensor, so an inertia with off-diagonals draws it. 0 for a null array or values that are not finite.
 */
ZEL_API int ZEL_SetGlobalMass(ZELDATA* db, double mass, const double center[3], const double inertia[9]);

/**
 * Adds an element face with its vertices in order round it. A vertex that repeats the one before is dropped, and so is a
 * last one that repeats the first. 0, with a message, when fewer than two vertices remain; nodes that it named stay added.
 */
ZEL_API int ZEL_SetFaceList(ZELDATA* db, int vertex_count, const int* node_ids);

/** The same with vertex_count ids of type int as further arguments. */
ZEL_API int ZEL_SetFace(ZELDATA* db, int vertex_count, ...);

/** Makes a known node an interface node, once; 0, silently, for an unknown id. */
ZEL_API int ZEL_SetInterfaceNode(ZELDATA* db, int node_id);

/*
 * Many nodes or faces in one call, as the calls above set them one after another; of equal ids the last one holds. They set
 * all or, on 0, nothing: with a message when a value is not finite, a face has too few nodes or memory is short; silently
 * for a negative count or a null array. A count of 0 sets nothing and is fine.
 */

/** Sets the positions of nodes: coordinates[3 * count], node by node. Unknown nodes are added in this order. */
ZEL_API int ZEL_SetNodes(ZELDATA* db, int count, const int* node_ids, const double* coordinates);

/** Replaces nodal masses: masses[count]. Unknown nodes are added at the origin. */
ZEL_API int ZEL_SetNodalMasses(ZELDATA* db, int count, const int* node_ids, const double* masses);

/** Replaces nodal inertias: inertias[6 * count], of each node xx, yy, zz, xy, xz, yz as ZEL_SetNodalInertia takes them. */
ZEL_API int ZEL_SetNodalInertias(ZELDATA* db, int count, const int* node_ids, const double* inertias);

/**
 * Adds faces: vertex_counts[count], and in node_ids the vertices of the first face, those of the second and so on. Unlike
 * ZEL_SetFaceList, a face that is refused leaves no node that it named.
 */
ZEL_API int ZEL_SetFaces(ZELDATA* db, int count, const int* vertex_counts, const int* node_ids);

/** Index of a node, which is added when its id is unknown; -1 on failure. */
ZEL_API int ZEL_LookupOrAddNode(ZELDATA* db, int node_id);

/* ---- Mode store ---------------------------------------------------------------------------------------------------- */

/*
 * The vectors that a caller sets go to a temporary file for each kind, made at full size (48 bytes x max_mode_nodes x
 * max_modes of ZEL_Create) with the first of them, in the folder that TMP (or, where that names none, TMPDIR) names, or
 * under the path in VXR_TMP_MOD, VXR_TMP_STR or VXR_TMP_STN; its path is printed. A file or link that has this path is
 * removed first; anything else, and a file that cannot be removed, makes the call fail. The file loses its name as soon as
 * it is open and goes with the database or the process. The vectors of a ZEL file cannot be set; a kind that the file lacks
 * can.
 *
 * Components 1 to 6 are x, y, z translations and rotations of a mode shape, or xx, yy, zz, xy, xz, yz of stress and strain.
 * Mode shapes cover every node; stress and strain those nodes for which one was set (ZEL_ModeNodeIndex tells the place).
 * Mode number 0 with stress or strain names the pre-stress or pre-strain of the body instead of a mode.
 *
 * The setters return 0, with a message and with the database as it was, when a file cannot be made, there is no room for a
 * further mode or node, or a value is not finite; silently for an unknown kind or component. After a write that kept mode
 * shapes at some nodes only, setting one at another node gives that node the place behind these in the node table.
 */

/**
 * Adds a mode, without looking for its number among those that are there; its index, or -1 with a message. Inertia
 * invariants 3 to 9 that the caller has set are of the modes before: each is dropped with a warning that names it.
 */
ZEL_API int ZEL_AddMode(ZELDATA* db, int mode_number);

/** Index of a mode, which is added when its number is unknown; -1 on failure. */
ZEL_API int ZEL_LookupOrAddMode(ZELDATA* db, int mode_number);

/** Sets the six components of one node in one mode. Unknown modes and nodes are added. */
ZEL_API int ZEL_SetModeVec(ZELDATA* db, int mode_number, int node_id, int kind, const double values[6]);
ZEL_API int ZEL_SetMode(ZELDATA* db, int mode_number, int node_id, int kind, double v1, double v2, double v3, double v4,
                        double v5, double v6);

/**
 * Sets the six components of many nodes in one mode, or in the pre-stress or pre-strain; unknown modes and nodes are added.
 * The values of other nodes stay. A vector that is kept for ZEL_Mode is read again.
 * node_ids  [node_count] null: the first nodes of the node table, in its order
 * values    six for each node
 * stride    doubles from the first value of a node to that of the next one: 6 for a dense array; any number, negative too
 * Returns 1; 0 with the database as it was, as the other setters do, and with a message for more nodes than there are where
 * node_ids is null. ZEL_MakeRoom makes room where there is too little. Takes no look-up a node where ids come in the order
 * of the table.
 */
ZEL_API int ZEL_SetModeArray(ZELDATA* db, int mode_number, int kind, int node_count, const int* node_ids,
                             const double* values, int64_t stride);

/** Sets one component, dof from 0 to 5; the others stay, at first zero. */
ZEL_API int ZEL_SetModeEntry(ZELDATA* db, int mode_number, int node_id, int kind, int dof, double value);

/**
 * A whole vector: out receives 6 values for each node of the kind's node list. Values that lie in a file are given only in
 * its precision, Single for floats and Double for doubles; a temporary file holds doubles, and pre-stress and pre-strain
 * are given in both. Always reads. 0, silently, for an unknown mode, no nodes, the other precision or a failed read.
 */
ZEL_API int ZEL_Read_Mode_Single(ZELDATA* db, int mode_number, int kind, float* out);
ZEL_API int ZEL_Read_Mode_Double(ZELDATA* db, int mode_number, int kind, double* out);

/**
 * Translations (part 0) or rotations (part 1) of every mode node: 3 values for each node of the kind's node list into out,
 * which is untouched on failure. One vector of each kind is kept in memory: a second call for the same mode reads nothing,
 * and does not see what was set in between. 0, silently, for an unknown mode, kind or part or a failed read.
 */
ZEL_API int ZEL_Mode(ZELDATA* db, int mode_number, int kind, double* out, int part);

/** The same for one node; on failure out holds zeros. */
ZEL_API int ZEL_ModeByNode(ZELDATA* db, int mode_number, int kind, int node_id, double out[3], int part);

/**
 * All six components of some nodes in some modes, in current units and whatever the precision of the file. Reads only what
 * is asked for, anew in every call.
 * node_ids      [node_count] of nodes that the kind's vectors cover; null: its first nodes, in the order of its node list
 * mode_numbers  [mode_count], where 0 with stress or strain names the pre-stress or pre-strain; null: the first modes
 * out           [mode_count][node_count][6]
 * Returns 1; 0, silently and with out untouched, for an unknown node, mode or kind, a null database or output or a count
 * below 1; 0 with out zero when a record cannot be read; 0, with a message, when memory is short.
 */
ZEL_API int ZEL_ModesOfNodes(ZELDATA* db, int kind, int node_count, const int* node_ids, int mode_count,
                             const int* mode_numbers, double* out);

/* ---- Matrices, loads, invariants given by the caller --------------------------------------------------------------- */

/* Modes are named by number, and added when unknown. Values that are not finite are refused with a message. */

/**
 * Appends an entry to a generalized matrix. Entries are not merged and not mirrored: a symmetric matrix needs both of a
 * pair. A mode for which there is no room gives a message and an entry with index -1.
 */
ZEL_API int ZEL_SetGeneralizedMass(ZELDATA* db, int row_mode, int column_mode, double value);
ZEL_API int ZEL_SetGeneralizedStiffness(ZELDATA* db, int row_mode, int column_mode, double value);
ZEL_API int ZEL_SetGeneralizedDamping(ZELDATA* db, int row_mode, int column_mode, double value);

/** Forgets all damping, projected or not, so that other can be set. 0, with a message, for a null database. */
ZEL_API int ZEL_RemoveGeneralizedDamping(ZELDATA* db);

/**
 * Sets a mode's component of a load case, which counts from 0. Cases up to it are added, with zero components and the
 * labels "Load Case 1", "Load Case 2" and so on. 0, with a message, for a negative case.
 */
ZEL_API int ZEL_SetModalLoad(ZELDATA* db, int load_case, int mode_number, double value);

/** Labels a load case with up to 255 characters, more are cut with a warning; an empty or null label gives its number. */
ZEL_API int ZEL_SetModalLoadLabel(ZELDATA* db, int load_case, const char* label);

/** Sets a mode's component of the preload, at first zero. */
ZEL_API int ZEL_SetModalPreload(ZELDATA* db, int mode_number, double value);

/**
 * Inertia invariants that the caller knows; they take the place of computed ones. M is the mode count: add all modes
 * first, since a later one drops invariants 3 to 9. 0, silently, for a null array or, from 3 on but for 7, no modes.
 *   1  the total mass, greater than zero      2  3 values               3, 4  3 x M, by component row
 *   5  a 3 x M matrix for each mode           6  M diagonal entries of the generalized mass, each exactly 1.0
 *   7  3 x 3, the inertia tensor              8  3 x 3 for each mode    9  3 x 3 for each pair of modes i, j; j runs faster
 * Given invariants are written, without full_invar too, and go with the body: orthogonal modes, another origin and other units
 * transform them.
 * 5 and 9 draw a warning, and are stored, when column j of mode i is not minus column i of mode j, or pair j, i not the
 * transpose of pair i, j, within 1e-8 of the largest value.
 */
ZEL_API int ZEL_SetInvar1(ZELDATA* db, double value);
ZEL_API int ZEL_SetInvar2(ZELDATA* db, const double values[3]);
ZEL_API int ZEL_SetInvar3(ZELDATA* db, const double* values);
ZEL_API int ZEL_SetInvar4(ZELDATA* db, const double* values);
ZEL_API int ZEL_SetInvar5(ZELDATA* db, const double* values);
ZEL_API int ZEL_SetInvar6(ZELDATA* db, const double* values);
ZEL_API int ZEL_SetInvar7(ZELDATA* db, const double values[9]);
ZEL_API int ZEL_SetInvar8(ZELDATA* db, const double* values);
ZEL_API int ZEL_SetInvar9(ZELDATA* db, const double* values);

/* ---- Queries: counts, header, nodes -------------------------------------------------------------------------------- */

/*
 * All queries are silent. A null database, a null output that is the only one, missing data or an index out of range gives
 * the failure value, 0 unless another is named.
 */

/** Format version, the low byte of the version code of the file that was read; 31 for a body built in memory. */
ZEL_API int ZEL_Version(const ZELDATA* db);

/**
 * Copies the header texts; any output may be null. Room: title and input_file_name 128 characters, date 32,
 * input_file_type 16, comments 80 each. Returns 1; 0 for a null database.
 */
ZEL_API int ZEL_Header(const ZELDATA* db, char* title, char* date, char* input_file_name, char* input_file_type,
                       char* comment1, char* comment2, char* comment3);

/** Number of nodes in the node table. */
ZEL_API int ZEL_NodeCount(const ZELDATA* db);

/** Number of modes. */
ZEL_API int ZEL_ModeCount(const ZELDATA* db);

/** 1 when stored mode vectors are doubles, 0 when they are floats: tells which of ZEL_Read_Mode_... serves them. */
ZEL_API int ZEL_Double_Prec(const ZELDATA* db);

/** Number of nodes that the mode vectors of a kind cover. */
ZEL_API int ZEL_ModeNodeCount(const ZELDATA* db, int kind);

/** ID of the node at a position of a kind's mode vectors, counted from 0. */
ZEL_API int ZEL_ModeNodeID(const ZELDATA* db, int kind, int position);

/** ID of the node at an index. */
ZEL_API int ZEL_NodeID(const ZELDATA* db, int node_index);

/** Coordinates of a node; zeros with result 0 for an index out of range. */
ZEL_API int ZEL_NodeCoordinates(const ZELDATA* db, int node_index, double xyz[3]);

/**
 * Coordinates of all nodes in the order of the node table.
 * xyz    [3 * ZEL_NodeCount(db)], node by node; may be null to ask for the count alone
 * count  number of nodes; may be null
 * Returns 1; 0, with a count of 0, without a node table.
 */
ZEL_API int ZEL_NodeCoordinateList(const ZELDATA* db, double* xyz, int* count);

/** Mass of a node, 0.0 for an index out of range. */
ZEL_API double ZEL_NodalMass(const ZELDATA* db, int node_index);

/** Mass (may be null) and coordinates of a node; zeros with result 0 for an index out of range. */
ZEL_API int ZEL_NodalMassAndGeometry(const ZELDATA* db, int node_index, double* mass, double xyz[3]);

/**
 * The inertia tensor of a node, mass length^2, about the node: symmetric, off-diagonal entries as ZEL_SetNodalInertia took
 * them. Returns 1; 0, with the output untouched, when the node has no inertia.
 */
ZEL_API int ZEL_NodalInertia(const ZELDATA* db, int node_index, double inertia[9]);

/**
 * Total mass, inertia (products of inertia off the diagonal, opposite to the tensor's, about the origin) and centre of mass,
 * first recomputed by ZEL_CalculateGlobalMassFromNodeMass: what ZEL_SetGlobalMass stored is lost once there are nodal
 * masses. Any output may be null. Returns 1; 0, with all outputs zero, for a null database.
 */
ZEL_API int ZEL_TotalMassInertia(ZELDATA* db, double* mass, double inertia[9], double center[3]);

/** Diagonal of the bounding box of all nodes, 0.0 without nodes. */
ZEL_API double ZEL_BodySize(const ZELDATA* db);

/* ---- Queries: modes and matrices ----------------------------------------------------------------------------------- */

/**
 * The eigenvalue record of a mode; any output may be null.
 * eigenvalue     in force / (mass length); 1.2345e20 stands for infinity
 * hertz          frequency in cycles per time unit of the database: hertz when that is the second
 * radians        the same in radians per time unit; hertz and radians are negative for a negative eigenvalue
 * gen_mass       generalized mass, mass length^2
 * gen_stiffness  generalized stiffness, force length
 * Without records they follow from the diagonals of generalized stiffness k (0 when missing) and mass m (1 when the body
 * has no mass entries): eigenvalue k/m, radians sqrt(ZEL_UCF k/m). Returns 1; 0, silently and with the outputs untouched,
 * for a null database or an unknown mode.
 */
ZEL_API int ZEL_Eigenvalue(ZELDATA* db, int mode_number, double* eigenvalue, double* hertz, double* radians,
                           double* gen_mass, double* gen_stiffness);

/** 1 when the database has mode shapes, modal stress or modal strain (kind 0, 1, 2). */
ZEL_API int ZEL_ModeExist(const ZELDATA* db, int kind);

/**
 * Generalized stiffness (force length), mass (mass length^2) and damping (force length time; see
 * ZEL_GenDampPrincipalAndSelected once it is projected). Stiffness and mass without entries count as diagonal, with the
 * generalized stiffness and mass of the eigenvalue records, or where a mode has no record with 0 and 1. Damping without
 * entries does not exist.
 *
 * Number of entries.
 */
ZEL_API int ZEL_NumberOfGenStiff(const ZELDATA* db);
ZEL_API int ZEL_NumberOfGenMass(const ZELDATA* db);
ZEL_API int ZEL_NumberOfGenDamp(const ZELDATA* db);

/** 1 when the database has damping entries. */
ZEL_API int ZEL_GenDampExist(const ZELDATA* db);

/**
 * The entries as they were given, equal pairs included. All three outputs are [ZEL_NumberOfGen...(db)]; rows and columns
 * are mode indexes, -1 where a mode could not be added. Returns 1; 0 without entries or with a null output.
 */
ZEL_API int ZEL_GenStiffSparse(ZELDATA* db, int* rows, int* columns, double* values);
ZEL_API int ZEL_GenMassSparse(ZELDATA* db, int* rows, int* columns, double* values);
ZEL_API int ZEL_GenDampSparse(ZELDATA* db, int* rows, int* columns, double* values);

/**
 * The full matrix: entry (r, c) at matrix[r * n + c], n the number of modes. Of equal pairs the last one holds; nothing is
 * mirrored: an entry given for one triangle only is in that triangle only. Returns 1; 0 with the matrix untouched when n
 * is not the number of modes, 0 with a zero matrix when there is no damping.
 */
ZEL_API int ZEL_GenStiffFull(ZELDATA* db, double* matrix, int n);
ZEL_API int ZEL_GenMassFull(ZELDATA* db, double* matrix, int n);
ZEL_API int ZEL_GenDampFull(ZELDATA* db, double* matrix, int n);

/**
 * The n x n submatrix of the named modes, in their order: entry (r, c) at matrix[r * n + c]. Returns 1; 0, with the matrix
 * untouched, for n below 1 or an unknown mode number.
 */
ZEL_API int ZEL_GenStiffSelected(ZELDATA* db, double* matrix, const int* mode_numbers, int n);
ZEL_API int ZEL_GenMassSelected(ZELDATA* db, double* matrix, const int* mode_numbers, int n);

/**
 * Damping that is projected on the principal axes, (6 + n) x (6 + n), entry (r, c) at matrix[r * (6 + n) + c]: rows and
 * columns 0 to 5 are the translations and rotations of the rigid body, the rest the n named modes (n may be 0). Returns 1;
 * 0, with the matrix untouched, when there is no damping or it is not projected, or for an unknown mode number.
 */
ZEL_API int ZEL_GenDampPrincipalAndSelected(ZELDATA* db, double* matrix, const int* mode_numbers, int n);

/**
 * The transformation from the caller's original modes to the present ones, M x M for M modes: matrix[i * M + k] is the
 * component of new mode i on old mode k. Returns 1; 0 without one.
 */
ZEL_API int ZEL_Transformation(const ZELDATA* db, double* matrix);

/**
 * Where a mode moves, turns or is strained most: the largest magnitude of translation, rotation, von Mises stress or von
 * Mises strain over the mode's nodes, and the ID of the first node that has it (0 when all are zero). From the modal
 * statistics of the file, else from the mode's vector.
 *   stress  sqrt(((x-y)^2 + (y-z)^2 + (z-x)^2) / 2 + 3 (xy^2 + xz^2 + yz^2))
 *   strain  2/3 sqrt(((x-y)^2 + (y-z)^2 + (z-x)^2) / 2 + 3/4 (xy^2 + xz^2 + yz^2)), with engineering shears
 * Either output may be null. Returns 1; 0 with both outputs zero for an unknown mode or one without such data.
 */
ZEL_API int ZEL_GetMaxModeDisplacement(ZELDATA* db, int mode_number, int* node_id, double* magnitude);
ZEL_API int ZEL_GetMaxModeRotation(ZELDATA* db, int mode_number, int* node_id, double* magnitude);
ZEL_API int ZEL_GetMaxVonMisesStress(ZELDATA* db, int mode_number, int* node_id, double* magnitude);
ZEL_API int ZEL_GetMaxVonMisesStrain(ZELDATA* db, int mode_number, int* node_id, double* magnitude);

/* ---- Queries: faces, loads, statistics ------------------------------------------------------------------------------ */

/** Number of faces, and of integers in the list of ZEL_ElementFaces; either output may be null. */
ZEL_API void ZEL_FaceListSize(const ZELDATA* db, int* faces, int* length);

/**
 * The faces: for each its vertex count, then so many node indexes. The two top bits of a count are flags of the file (mask
 * it with ZEL_FACE_VERTICES). face_list has room for the length that ZEL_FaceListSize gives. Returns 1; 0 without faces.
 */
ZEL_API int ZEL_ElementFaces(const ZELDATA* db, int* face_list);

/** New array of the interface nodes, as indexes or as IDs; null with a count of 0 without any. count may be null. */
ZEL_API int* ZEL_InterfaceNodes(const ZELDATA* db, int* count);
ZEL_API int* ZEL_InterfaceNodeIDs(const ZELDATA* db, int* count);

/** New array of the preload, one component a mode; null with a count of 0 without a preload. count may be null. */
ZEL_API double* ZEL_GetModalPreload(const ZELDATA* db, int* count);

/** 1 when the database has a preload. */
ZEL_API int ZEL_ModalPreloadExist(const ZELDATA* db);

/** Number of modal load cases. */
ZEL_API int ZEL_GetModalLoadCaseCount(const ZELDATA* db);

/** 1 when a load case, counted from 0, is projected on the principal axes. */
ZEL_API int ZEL_ModalLoadProcessed(const ZELDATA* db, int load_case);

/** Label of a load case; the output has 256 characters, all of which are written. */
ZEL_API int ZEL_GetModalLoadCaseLabel(const ZELDATA* db, int load_case, char* label);

/** New array of a load case, one component a mode; null with a count of 0 for an unknown case. count may be null. */
ZEL_API double* ZEL_GetModalLoad(const ZELDATA* db, int load_case, int* count);

/** 1 when the database has modal statistics. */
ZEL_API int ZEL_ModalStatisticsExist(const ZELDATA* db);

/* ---- File ---------------------------------------------------------------------------------------------------------- */

/**
 * Moves a stdio file to a 64-bit position: whence 0 from the start, 1 from the current position, 2 from the end.
 * Returns 0; nonzero when the move is impossible (a null file, a negative target, another whence). Positions beyond the
 * end are allowed.
 */
ZEL_API int FileSeek_Win32(FILE* file, int64_t offset, int whence);

/** The current 64-bit position of a stdio file, -1 when it cannot be taken. */
ZEL_API int64_t FileTell_Win32(FILE* file);

/* ---- File: reading and reporting ----------------------------------------------------------------------------------- */

/**
 * Whether the database has a block: 1 or 0, silent. block_index is the block's number (ZEL_BLOCK_...) less one, 0 to 31; the first three
 * blocks always exist, the others when they were read or have been set since.
 */
ZEL_API int ZEL_Exists(const ZELDATA* db, int block_index);

/**
 * Positions the file that the database was read from at the start of a block (index 0 to 31). 1, or 0, silently, when
 * there is no file, the index is another, the file lacks the block, or the block describes the body no longer (other modes
 * or another origin since).
 */
ZEL_API int ZEL_goto_block(ZELDATA* db, int block_index);

/**
 * Bytes that a block (index 0 to 31) takes in the file that the database was read from, told from the counts at its
 * start; the file's position is kept. 0, silently, where ZEL_goto_block gives 0, and, with the message of the block, for
 * unreadable counts or a size beyond the end of the file.
 */
ZEL_API int64_t ZEL_size_of_block(ZELDATA* db, int block_index);

/**
 * Fills a fresh database from a ZEL file that is open for binary reading; ZEL_CreateFromZEL does all of it. Mode vectors
 * and invariants stay in the file and are read on demand.
 * file  becomes the database's, which closes it; it stays the caller's only when the database is null or not fresh
 * name  copied; ZEL_CreateFromZEL finds the database by it; may be null
 * Returns 1; 0, after one message, for a file that is damaged or no ZEL file: what was read so far stays in the database,
 * fit for ZEL_UnLink only. A database that has a file, nodes or modes already is refused silently; units, loads and
 * matrices that it has are forgotten.
 */
ZEL_API int ZEL_ReadZEL(ZELDATA* db, FILE* file, const char* name);

/**
 * Reads a sparse generalized matrix anew from the database's file, in current units, in the place of the one in memory.
 * The file's position is kept. Returns 1; 0, with the matrix as it was, when the file has no such block or it does not
 * describe the body any more, as after a write that changed the modes (silent), or when it cannot be read or memory is short.
 */
ZEL_API int ZEL_ReadGeneralizedStiffness(ZELDATA* db);
ZEL_API int ZEL_ReadGeneralizedMass(ZELDATA* db);
ZEL_API int ZEL_ReadGeneralizedDamping(ZELDATA* db);

/**
 * Prints one block of a database, number 1 to 32, in readable form: what the database holds, and of mode vectors and
 * invariants what is still in its file. Nothing is computed and nothing changes. Prints nothing for an invalid database or
 * block number. Of output that fails the stream tells (ferror).
 */
ZEL_API void ZEL_Contents(ZELDATA* db, int block, FILE* stream);

/* ---- File: writing ------------------------------------------------------------------------------------------------- */

/**
 * Writes the database to a ZEL file.
 * options  says how; null: no options. Each keyword counts wherever it occurs in the text, also inside another keyword or
 *          an argument; other words mean nothing:
 *   format    full_str (stress and strain for all mode nodes, version 41), single (precision), no_xdr (native byte order),
 *             82_comp and 81_comp (versions 20 and 10), sparse_str (no stress and strain where they are zero)
 *   modes     no_ortho (as they are), lowpass(hz) and highpass(hz): a run of modes up to and above these frequencies
 *   content   full_invar, fast_invar (inertia invariants, modal data only at geometry nodes), empty (no modal content),
 *             MKS (in SI units)
 *   geometry  lbrf2cm (origin to the centre of mass), sketch("file") (faces of a sketch file),
 *             strip_face (no inner faces), coarsen(percent, degrees, preserve_str ids) (fewer faces)
 * Modal data at nodes without geometry goes with full_invar and fast_invar. Without them it stays, also in a body that has
 * invariants, given or read; but where such a body has modal data at its geometry nodes alone and this write takes faces away, the
 * data of nodes that lose their geometry goes too. Invariants are those of the whole body throughout.
 * Unless no_ortho is given the modes become the eigenvectors of their generalized stiffness and mass. How large a mode is
 * plays no part. A mode that depends linearly on others is left out with a warning that names it, and so is one with
 * neither stiffness nor mass or with an infinite eigenvalue; a mode that was added after such a write without a
 * generalized mass is massless and goes the same way. Vectors that turn out not to be orthogonal draw a warning. When the
 * modes cannot be made orthogonal (memory or disk is short, an entry is not finite) the write fails, and modes, matrices,
 * loads, preload, damping and transformation are as before.
 * What completed steps have done to the body stays done to the database, also when the write fails. Modes are written with
 * numbers from 1. Returns 1; 0, with a message, when options exclude one another, the database cannot be written as it is, memory or
 * disk is short, the file cannot be made, or `name` is, or leads to, the file that the database was read from.
 * The output takes its place when it is complete: until then, and after any failure, an older file of that name stands, and
 * whoever has it open, another database as well, goes on reading it. Links are followed; the older file's mode bits stay,
 * its other names keep its old content. The new file waits without a name (or as ".zel_<process>_<number>") in the same
 * folder, so that old and new take disk space together. A pipe or a device is written directly. Where the folder takes no
 * second file, the output waits in the folder for temporary files and then overwrites the older one, with a warning, unless
 * a database reads that.
 */
ZEL_API int ZEL_WriteWithOptions(ZELDATA* db, const char* name, const char* options);

/** The same with the options in the environment variable VXR_ZELWRITE_OPTIONS, without any when it is not set. */
ZEL_API int ZEL_write_ZEL(ZELDATA* db, const char* name);

/**
 * Makes the modes orthogonal in memory, as a write without no_ortho does. Such a write leaves them as they are afterwards: what is
 * given to the mode at an index now, as damping, belongs to the same mode of the file. Returns 1, also without modes; 0, with a
 * message and the modes as they were, for a null database or modes that such a write cannot make orthogonal or leaves as they are.
 */
ZEL_API int ZEL_OrthogonaliseModes(ZELDATA* db);

/**
 * Generalized masses that couple two groups of modes, the first `count1` and the `count2` behind them: for mode i of the
 * first and j of the second group the sum over the nodes of mass t_i . t_j + r_j . I r_i, with t and r the translations and
 * rotations of the mode shapes and I the nodal inertia. Each is stored as the entries (i, j) and (j, i), behind the masses
 * that all modes have by implication where none were stored before. A mode of the
 * second group whose shape cannot be read couples with 0. Returns 1, also when a group is empty; 0, with a message, when
 * the counts do not add up to the mode count, there are no nodes or memory is short, and 0 when a mode of the first group
 * cannot be read.
 */
ZEL_API int ZEL_AnsysAddGenMass(ZELDATA* db, int count1, int count2);

/* ---- Units --------------------------------------------------------------------------------------------------------- */

/**
 * Unit tables in search order; each ends with an empty label. A label's factor is that of its table: a unit of another
 * dimension has none.
 */
extern ZEL_API const ZELUNIT ZEL_MassUnits[], ZEL_ForceUnits[], ZEL_LengthUnits[], ZEL_TimeUnits[];

/**
 * Replaces an accepted spelling ("kg", "tonne", "lbf", case ignored) by its canonical label ("KILOGRAM") in place; label
 * has room for 16 characters. 0, silently and without a change, for an unknown spelling.
 */
ZEL_API int ZEL_ConvertUnitsLabel(char* label);

/** SI factor of a canonical label in a table: 1.0 for an empty label, 0.0 for one that the table lacks. */
ZEL_API double ZEL_UnitsDivider(const char* label, const ZELUNIT* table);

/** `value` in kilograms, newtons, metres or seconds, from the database's unit; 0.0 for a null database. */
ZEL_API double ZEL_Mass2Kilogram(const ZELDATA* db, double value);
ZEL_API double ZEL_Force2Newton(const ZELDATA* db, double value);
ZEL_API double ZEL_Length2Meter(const ZELDATA* db, double value);
ZEL_API double ZEL_Time2Second(const ZELDATA* db, double value);

/** Label of the first row whose factor is within 0.01 % of `factor`; the text is the table's. Null when none is. */
ZEL_API const char* ZEL_UnitsLabel(double factor, const ZELUNIT* table);

/**
 * Unit consistency factor (force time^2) / (length mass), in SI: 1 when a unit force accelerates a unit mass by one unit
 * of length per time unit squared. 0.0 for a null database or a unit that its dimension's table lacks.
 */
ZEL_API double ZEL_UCF(const ZELDATA* db);

/** Copies the four unit labels, the defaults KILOGRAM, METER, SECOND, NEWTON for empty ones, into outputs of 16
 * characters, any of which may be null. 0 for a null database. */
ZEL_API int ZEL_Units(const ZELDATA* db, char* mass, char* length, char* time, char* force);

/** Multiplies `count` doubles in place and returns the array. */
ZEL_API double* ZEL_Convert_Units(double* values, int count, double factor);

/**
 * Gives the database its units, or changes them and rescales everything that it holds; any accepted spelling will do. The
 * first call only stores the labels. Returns 1; 0, silently and with the database untouched, for an unknown spelling, a
 * unit of another dimension on either side of a change, or a value in memory that would become infinite. Generalized
 * masses that are assumed, those of modes without an entry or record, change with all others; a mode that is added later
 * has the same. Of a projected load or preload the first three components are forces, whatever the rigid-body modes are by
 * now: the projection and the reader keep that with the vector.
 */
ZEL_API int ZEL_SetUnits(ZELDATA* db, const char* mass, const char* length, const char* time, const char* force);

/** The same by SI factors, for example 0.001 for a length in millimetres; 0 when a table has no such unit. */
ZEL_API int ZEL_SetUnitsByMultiplierOnSI(ZELDATA* db, double mass, double length, double time, double force);

/**
 * Multiplies every stored quantity by the factor that its dimension gives with the ratios of the last change (mass m,
 * length l, time t, force f); ZEL_SetUnits calls it. Modes in a file are scaled when they are read.
 *   nodal masses m; coordinates l; nodal inertias m l^2; total mass m, centre l, inertia m l^2
 *   generalized mass m l^2, stiffness f l, damping f l t (projected: f t / l between translations, f t beside one)
 *   eigenvalue f / (m l), frequencies 1 / t; loads and preload f l (projected: the first three f)
 *   translations l, rotations 1, stress f / l^2, strain 1; invariant 1 m, 2 and 3 m l, the others m l^2
 * Returns 1; 0 for a null database or, with the database untouched, when memory is short.
 */
ZEL_API int ZEL_ScaleDatabase(ZELDATA* db);

/* ---- Inertia invariants -------------------------------------------------------------------------------------------- */

/*
 * Each invariant is what the caller set, else what the file holds, else the sum over the nodes given below; the first use
 * settles it and keeps it. Node p has mass m, position s and inertia tensor J (where it has one). E is the 3x3 identity.
 * Without nodal masses, invariants 1, 2 and 7 follow from the global mass, centre and inertia (whose off-diagonals have
 * the opposite sign), the others are zero. Results are null for a database that is not live (silent) and, with a message,
 * when memory is short or the file cannot be read.
 */

/** Total mass, sum of m; 0.0 where other invariants are null. */
ZEL_API double ZEL_Invar1(ZELDATA* db);

/** First moment of mass, sum of m s: new array of 3. */
ZEL_API double* ZEL_Invar2(ZELDATA* db);

/*
 * Invariants 3 to 9 belong to the M modes; mode k has translations phi and rotations psi at node p. Indexes count from 0.
 * Null, silently, without modes or for an unknown index. Sums that some node with a mass or an inertia, but without mode
 * shapes, would be missing from are zero. Invariants 5 and 9 of which nothing is known take no memory: their values may be
 * absent from the record's own tables and are to be asked for here. A block of the file that tells of fewer modes than
 * there are is written for these again. Memory beside the result stays below 64 MiB; the stored mode shapes are read once
 * for 3, 4 and 8 together, once for 5 and 9 together.
 */

/** Sum of m phi: new array of 3 M, component c of mode k at [c M + k]. */
ZEL_API double* ZEL_Invar3(ZELDATA* db);

/** Sum of m s x phi + J^T psi: new array of 3 M, component c of mode k at [c M + k]. */
ZEL_API double* ZEL_Invar4(ZELDATA* db);

/**
 * Sum of m phi_i x phi_j for mode i and every mode j: new array of 3 M, component c at [c M + j]. Exactly antisymmetric in
 * the modes.
 */
ZEL_API double* ZEL_Invar5(ZELDATA* db, int mode_index);

/** The generalized mass: new array of M M, as ZEL_GenMassFull fills it. */
ZEL_API double* ZEL_Invar6(ZELDATA* db);

/** Inertia tensor about the origin, sum of m ((s.s) E - s s^T) + J: new array of 9. */
ZEL_API double* ZEL_Invar7(ZELDATA* db);

/** Sum of m (phi s^T - (phi.s) E) of one mode: new array of 9. */
ZEL_API double* ZEL_Invar8(ZELDATA* db, int mode_index);

/** Sum of m (phi_j phi_i^T - (phi_i.phi_j) E) of two modes: new array of 9. (j, i) is exactly the transpose of (i, j). */
ZEL_API double* ZEL_Invar9(ZELDATA* db, int mode_index_i, int mode_index_j);

/* ---- Linear algebra, rigid-body and environment tools -------------------------------------------------------------- */

/** Index of a mode number, the first one when several modes bear it; -1, silently, for an unknown one. */
ZEL_API int ZEL_ModeIndex(const ZELDATA* db, int mode_number);

/** Mode number at an index, 0 outside 0 to ZEL_ModeCount - 1. */
ZEL_API int ZEL_ModeNumber(const ZELDATA* db, int mode_index);

/**
 * How many modes at the front are rigid-body modes: the first k at which the frequency exceeds 10 while the very first
 * one is below 0.1 in magnitude, or at which its magnitude is more than 10 000 times the one before. 0 when no k
 * qualifies. Frequencies are taken as stored, in cycles per time unit.
 */
ZEL_API int ZEL_RigidBodyModeCount(ZELDATA* db);

/**
 * Compare two elements whose first member is an int, for qsort and bsearch: negative, 0 or positive as the first int of a
 * is below, equal to or above that of b.
 */
ZEL_API int By_Id(const void* a, const void* b);

/** Position of a mode number in `count` ascending ones; -1, silently, when it is not among them. */
ZEL_API int SelectedModeIndex(int mode_number, const int* sorted_numbers, int count);

/**
 * LU decomposition in place with row pivoting (Doolittle): perm * a = l * u, l with a unit diagonal.
 * a     n row pointers; the rows' contents are exchanged and overwritten, the pointers stay
 * perm  [n] row i of the result was row perm[i]
 * Returns 1; 0, silently, for null arguments or when a column has no pivot. The last pivot is not tested: when it is zero,
 * solutions are not finite.
 */
ZEL_API int ZEL_LUPDecomposition(double** a, int n, int* perm);

/** Solves with a decomposition; b[n] becomes the solution. 0, with a message, when memory is short or n is below 1. */
ZEL_API int ZEL_LUPSolve(double** lu, int n, const int* perm, double* b);

/** Replaces a decomposition by the inverse matrix. 0, with a message, when memory is short or n is below 1. */
ZEL_API int ZEL_LUPInvert(double** lu, int n, const int* perm);

/**
 * Sets the global mass, centre of mass and inertia from invariants 1, 2 and 7; the centre of a body of mass zero is the
 * origin. Returns 1; 0, with a message and nothing changed, for a null database or a file that cannot be read.
 */
ZEL_API int ZEL_CalculateGlobalMassFromNodeMass(ZELDATA* db);

/**
 * Replaces the first six components of the preload and of every modal load case, which belong to the R rigid-body modes
 * (ZEL_RigidBodyModeCount), by the resultant force and moment about the origin; once for each. The resultant of a load q
 * is the sum over the rigid-body modes of q_k / g_k times the momentum of the mode, g_k its generalized mass: sums of m phi
 * and m s x phi over the nodes, or invariants 3 and 4 (which also know nodal inertias) when there are no nodal masses,
 * when some of them lie where no mode shapes are, or when VXR_MFORCE_NO_FEA_MASS is set in the environment. Results of
 * magnitude 1e-10 and less become 0. Warns of a preload with such a resultant, and of loads with fewer than six rigid-body
 * modes. When memory is short, prints a message and leaves all loads as they were; so it does, as a warning, when the
 * rigid-body modes have no momentum because the body has no mass data.
 */
ZEL_API void ZEL_RigidBodyForcesOnPrincipalAxes(ZELDATA* db);

/**
 * Replaces the first six rows and columns of the generalized damping, which belong to the rigid-body modes, by those of the
 * six principal rigid-body velocities: C := Q' C Q, where Q expresses the rates of the modes by them (from invariants 1,
 * 2, 3, 4 and 7) such that the power stays the same. Done once, and only with damping and six rigid-body modes. Returns 1,
 * also when there is nothing to do; 0, with a message and nothing changed, for a null database, when the modes do not span
 * the rigid-body motions (a pivot below 1e-12 of its column, as of masses on a straight line), or when memory is short.
 */
ZEL_API int ZEL_DampingOnPrincipalAxes(ZELDATA* db);

/** Both projections above, loads first. Returns 1; 0, with a message, for a null database. */
ZEL_API int ZEL_RigidModes2KORAL(ZELDATA* db);

/**
 * Name of the running system, for example "Linux_", version "6_1" and build "13", into a buffer of 256.
 * kind  1, 11 and others: name; 2: "name version"; 3: "name version build"; 12, 13: the same joined by "_"
 * Returns 0.
 */
ZEL_API int ZEL_uname(int kind, char* buffer);

/**
 * Local date "2024-02-29" (kind 1), time with its offset from universal time "13:05 +0100" (kind 2) or both (any other
 * kind), into a buffer of 64. A negative kind also prints the universal and the local time. Returns 0. An offset between
 * zero and minus one hour shows without its sign.
 */
ZEL_API int ZEL_localtime_ISO8601(int kind, char* buffer);

/** Processor seconds that the process has used. */
ZEL_API double ZEL_cputime(void);

/* ---- Node search --------------------------------------------------------------------------------------------------- */

/**
 * Index of a node id; -1, silently, for an unknown one or a null database. The first call after nodes were added puts
 * node_id_index in order.
 */
ZEL_API int ZEL_NodeIndex(ZELDATA* db, int node_id);

/**
 * Position of a node id in the node list of a kind, which is the order of the values in that kind's mode vectors; -1,
 * silently, when it is not in there. Puts mode_node_id_index of the kind in order likewise.
 */
ZEL_API int ZEL_ModeNodeIndex(ZELDATA* db, int kind, int node_id);

/**
 * Index of the node nearest to a point, of all nodes or, with use_subset, of the interface nodes if there are any. Of
 * several at the same distance the first one, in the order of the nodes or the interface nodes. -1 without nodes. The
 * distance is computed as dx^2 + dy^2 + dz^2; a node for which this is no number is never an answer. With many candidates a
 * search tree is built on the way and kept until nodes, coordinates or interface nodes change.
 */
ZEL_API int ZEL_ClosestNode(ZELDATA* db, const double point[3], int use_subset);

/**
 * New array of the k nearest nodes, or of all when there are fewer, nearest first and ties in the same order; their number
 * in count, which may be null. Null and 0 when k is below 1 or no node has a distance, or (with a message) memory is
 * short.
 */
ZEL_API int* ZEL_ClosestNodes(ZELDATA* db, const double point[3], int k, int use_subset, int* count);

/**
 * New array of all nodes whose distance from a point does not exceed radius, nearest first, with their number in count
 * and, unless it is null, a new array of their distances in *distances. Null, 0 and null when there is none. A radius that
 * is a distance given here reaches its node; distances whose squares would underflow or overflow are right as well.
 */
ZEL_API int* ZEL_ClosestNodesInNeighborhood(ZELDATA* db, const double point[3], double radius, int* count,
                                            double** distances);

/**
 * Exchanges the records of two nodes: each has the other's index afterwards. Faces, interface nodes and mode vectors of all
 * kinds go with their nodes; computed inertia invariants are dropped. Unknown ids do nothing; neither do, after a message,
 * nodes whose mode shapes lie in a ZEL file or of which only one has any. Each call walks the whole face list and all interface nodes.
 */
ZEL_API void ZEL_SwapNodesByID(ZELDATA* db, int id_a, int id_b);

/* ---- Face tools ---------------------------------------------------------------------------------------------------- */

/**
 * The nodes that draw the body: those of its faces and the interface nodes, as node indexes, ascending, each once.
 * count  how many; may be null
 * The array is the caller's, freed with free(). Null with a count of 0 when there are none, for a null database or, with
 * a message, when memory is short.
 */
ZEL_API int* ZEL_GeometryNodes(ZELDATA* db, int* count);

/**
 * Removes the faces between two elements, so that a body of solid elements keeps its skin. Two faces with the same count
 * word (vertex count and the two flag bits) and the same ring of nodes in opposite directions are removed together; of
 * copies in the same direction one stays. The faces that stay are rotated to start at their largest node index and sorted
 * by count word, largest node and then the other nodes from the larger neighbour of the largest one on.
 * The faces stay as they were when memory is short (with a message).
 */
ZEL_API void ZEL_StripCommonFaces(ZELDATA* db);

/**
 * Replaces the faces by those of a text file: the number of faces, then for each its vertex count, from 1, and so many
 * node ids, all separated by white space. Faces are taken as they stand there. A file that cannot be opened, is
 * malformed or names an unknown node gives a warning and leaves the faces as they were. Silent for a null database or
 * file name.
 */
ZEL_API void ZEL_SketchGrid(ZELDATA* db, const char* sketch_file);

/**
 * Coarsens the face mesh. A body that is closed and oriented (every directed edge of a face has its opposite in another)
 * stays so. Only nodes that are there are used; the node table keeps them all. Interface nodes stay on the faces. The rim
 * of a shell, where an edge has one face, counts as a sharp edge: flat shells keep their area, holes included. Faces of two
 * vertices (lines) move along but make no nodes one.
 * text  numbers and words, separated by blanks or commas:
 *       - the resolution in percent of the longest side of the body's bounding box, 0 to 50: nodes that edges connect
 *         inside a grid cell of this size become one, corners and sharp edges before others, but never sides that face
 *         opposite ways, so that thin plates keep both skins; 0 merges none. Beside nodes that must stay, the sharpest
 *         node of a cell stays too where they would cut an edge or a corner off
 *       - the face angle in degrees, 0 to 45, 0 when not given: neighbouring faces whose normals are within it of the
 *         largest one's become one polygon, and always those within 0.01 degrees
 *       - "preserve_str" and the ids of nodes that must stay on the faces, unknown ones ignored; without ids, all nodes
 *         that carry modal stress or strain. Without the word, vertices in the middle of straight edges go.
 * Where faces come to lie on each other the other way round, both go, but not on nodes that must stay, not all that hang
 * together, and not the two sides of a shell that has each face in both directions from the start.
 * Flat-sided bodies keep their volume; where a resolution comes near the size of the body's parts, or the angle is large,
 * the body visibly shrinks. Polygons can be concave where triangles would be more than the faces merged.
 * Returns 1; 0 with a message and the faces as they were for a null database, a text without a number, a number out of
 * range, a face with an unknown node, or when memory is short.
 */
ZEL_API int ZEL_TrimGeometry(ZELDATA* db, const char* text);

/* ---- Comparison ---------------------------------------------------------------------------------------------------- */

/**
 * Compares a new database with a base block by block and prints a report on standard output. Nodes are paired by id and
 * modes by their order. Both databases are in kilograms, metres, seconds and newtons afterwards; all else of them stays.
 * Total mass and centre of mass are compared as they are stored, and not computed from the nodes.
 * verbosity  0 "->Fail" lines only; 1 and above also "->Note", "->Warning" and the verdict; 2 and above also "Pass" lines;
 *            below 0 nothing
 * tolerance  a check fails when its difference is greater: the largest absolute difference over 1 or, where it is more,
 *            the largest magnitude in the base (the total mass: the relative difference; the centre of mass: over the new
 *            centre). "Delta" lines tell it. A value that is no number or infinite on one side only differs infinitely
 *            and fails at every tolerance; where both sides have the same it does not differ.
 * Returns 0 when the body is the same, minus the number of failed checks otherwise; -1, with a message, for a database
 * that is not live, units that cannot be changed or, as a part of the sum, memory that is short or an end on request.
 *
 * A mismatch of the nodes or of the content ends the process, with exit status 255 and a text that ends in "(Exit)": a
 * node of the new database that the base lacks, in the node table or in the mode vectors of a kind; fewer nodes in the
 * base; no coordinates, eigenvalues or mode shapes in either. So a file that was written with no_ortho, which has no
 * eigenvalues, cannot be compared.
 *
 * What it does not see: inertia in the global properties ("TotalI" always passes); values of the preload; the first six
 * components of loads, and signs of the others (a warning); damping and modal statistics; a new mode vector where the
 * base's is zero; nodes, modes and load cases that only the base has; the order of the mode numbers; blocks that one of the two lacks; the transformation of the modes
 * (a warning); the signs of modes, which are arbitrary: a new mode shape that points against the base's, by its
 * translations or, where those are noise (a millionth of the rotations times the body's size), by its rotations, is turned
 * with all that belongs to it. Versions are compared with their bits for encoding and precision.
 */
ZEL_API int ZEL_Compare(ZELDATA* base, ZELDATA* new_, int verbosity, double tolerance);

enum
{
    ZEL_NONE = -2147483647 - 1 /* of a mode number, node id or component: there is none to name */
};

/* What became of a check. */
enum
{
    ZEL_COMPARISON_PASS = 0,
    ZEL_COMPARISON_NOTE = 1,    /* a difference that is none of the body, or nothing to compare */
    ZEL_COMPARISON_WARNING = 2, /* a difference that may be meant, or a comparison that was not possible */
    ZEL_COMPARISON_FAIL = 3
};

/* One check of a comparison. */
typedef struct ZELCOMPARISON
{
    const char* check; /* what was compared, for example "node coordinates"; the text is the library's and stays */
    double worst;  /* the difference as ZEL_Compare measures it, of counts their distance; not a number: not compared */
    int block;     /* to which it belongs, ZEL_BLOCK_... */
    int mode;      /* number in the new body of the mode that differs most, or of the one that is compared */
    int node;      /* id of the node that differs most, or of the first one that is missing */
    int component; /* that differs most, from 0; of a matrix the column, of a load the case; ZEL_NONE as for these two */
    double limit;  /* a greater worst fails: the tolerance, or 0 where things must be equal */
    int verdict;   /* ZEL_COMPARISON_... */
    double difference; /* the largest one, absolute; not a number: not compared */
    double scale;      /* the largest magnitude in the base that is finite; not a number: there is none, as of counts */
} ZELCOMPARISON;

/**
 * The comparison of ZEL_Compare as an array: nothing is printed, and the process goes on whatever is found. Where nodes, or
 * blocks that ZEL_Compare insists on, are missing, a row fails and what both bodies have is compared all the same. Beside
 * the checks of ZEL_Compare there are rows for what it does not see: the inertia of the body, the components of preload and
 * loads with their signs, damping, and modal statistics where both have them. The bodies are equal when no row fails and some
 * row has compared values: passes or fails, with a scale or a difference above 0.
 * Both databases are in kilograms, metres, seconds and newtons afterwards; all else of them stays.
 * rows  [room] the checks in the order of the blocks, of modal blocks one or two a mode; null: only counts
 * room  how many rows there is room for; further ones are counted
 * Returns the number of checks, which may be more than room; -1, with a message and with rows that mean nothing, for a
 * database that is not live, units that cannot be changed, memory that is short or an end on request.
 */
ZEL_API int ZEL_CompareBodies(ZELDATA* base, ZELDATA* fresh, double tolerance, ZELCOMPARISON* rows, int room);

/* ---- Eigen-solver stages: Fortran calling, all by reference, column order ------------------------------------------ */

/*
 * The four stages of the QZ algorithm for A x = lambda B x, to be called in this order on the same arrays, and the
 * precision that the second one uses (C. B. Moler and G. W. Stewart, SIAM J. Numer. Anal. 10, 1973; R. C. Ward, SIAM J.
 * Numer. Anal. 12, 1975; argument lists and results of the routines published by B. S. Garbow, version of August 1983).
 *
 *   nm      leading dimension of a, b and z
 *   n       order of the pair; the stages do nothing when it is below 1
 *   a, b    [nm * n] the pair in column order, each stage's result on return
 *   matz    nonzero: accumulate the transformations in z; 0: z is not touched and may be null
 *   z       [nm * n] in column order
 *   alfr, alfi, beta  [n] lambda_j = (alfr[j] + i alfi[j]) / beta[j]; beta[j] >= 0, and 0 for an infinite eigenvalue.
 *           Complex pairs are neighbours, the one with the positive imaginary part first.
 *
 * Nothing is checked and no message given: arguments that are not finite give results that are not, and ierr is the only
 * sign of failure. For a diagonal pair A and B stay as they are and Z is exactly the identity, until the last stage.
 */

/** A to upper Hessenberg, B to upper triangular form; sets z to the accumulated transformation of columns. */
ZEL_API void ZEL_QZHESS(const int* nm, const int* n, double* a, double* b, const int* matz, double* z);

/**
 * A to quasi-triangular form (1x1 and 2x2 blocks) by QZ sweeps. Elements up to a precision times the norm (1 for a zero
 * matrix) count as zero, the precision being eps1 when that is above 0, else EIGPSN of 1.0. b[n - 1], which lies below
 * the triangle, returns B's threshold to the next stages.
 * ierr  0, or the number j from 1 of the eigenvalue that was sought when 30 n sweeps were used up; those after it are found
 */
ZEL_API void ZEL_QZITT(const int* nm, const int* n, double* a, double* b, const double* eps1, const int* matz,
                       double* z, int* ierr);

/** Eigenvalues. Splits the 2x2 blocks with real eigenvalues: A keeps blocks for complex pairs only. */
ZEL_API void ZEL_QZVALL(const int* nm, const int* n, double* a, double* b, double* alfr, double* alfi, double* beta,
                        const int* matz, double* z);

/**
 * Eigenvectors. z brings in the transformations of the other stages and returns the vectors: column j for a real
 * eigenvalue, scaled so that its largest component has magnitude 1; columns j and j + 1 are the real and imaginary part
 * of the vector of alfr[j] + i alfi[j], scaled so that its largest component has modulus 1, and the other one of the
 * pair is its conjugate. Signs and phases are arbitrary. B is destroyed, A is not.
 */
ZEL_API void ZEL_QZVECC(const int* nm, const int* n, double* a, double* b, const double* alfr, const double* alfi,
                        const double* beta, double* z);

/**
 * Halves x until 1 + x is 1 in the arithmetic of the machine, stores the result in x and returns it: 2^-53 from 1.0. An
 * x that already is so small, or is infinite or not a number, stays as it is.
 */
ZEL_API double EIGPSN(double* x);

/* ---- Fortran entry points: all by reference, texts followed by their length by value ------------------------------- */

/*
 * A Fortran program builds one body at a time, the current database. Each routine forwards to the operation named in its
 * comment or alike in name; ierr becomes 0 on success and 1 on failure, without a current database after the message
 * "No ZELDATA object.  Call ZEL_CREATE first". A text is followed by its length; trailing blanks belong to no header text,
 * unit or label. Arrays lie in memory as the C functions have them, so a Fortran program declares them the other way round.
 *
 * Each entry point is exported twice. CALL ZEL_CREATE(...) in a program that gfortran compiles links to zel_create_, which
 * takes the lengths of texts as size_t behind all other arguments; the module in zel.f90 uses the names below. The names of
 * -fsecond-underscore are not there.
 */

/**
 * Makes a new current database. When there is one already, every database of the process is freed first, also those that
 * were created through the C functions.
 */
ZEL_API void ZEL_CREATE(const int* max_mode_nodes, const int* max_modes, int* ierr);

/**
 * Makes the database of a file the current one; the one before stays in the list. The name is taken as it is, blanks at
 * its end included. After a failure there is no current database.
 */
ZEL_API void ZEL_CREATE_FROM_ZEL(const char* name, int name_len, int* ierr);

/** ZEL_Terminate: frees every database. */
ZEL_API void ZEL_TERMINATE(int* ierr);

/** ZEL_MakeRoom */
ZEL_API void ZEL_MAKE_ROOM(const int* max_mode_nodes, const int* max_modes, int* ierr);

/** ZEL_SetHeader; the program's texts are never changed. */
ZEL_API void ZEL_SET_HEADER(const char* title, int title_len, const char* file_name, int file_name_len,
                            const char* file_type, int file_type_len, const char* comment1, int comment1_len,
                            const char* comment2, int comment2_len, const char* comment3, int comment3_len, int* ierr);
ZEL_API void ZEL_SET_UNITS(const char* mass, int mass_len, const char* length, int length_len, const char* time,
                           int time_len, const char* force, int force_len, int* ierr);
/** ZEL_SetUnitsByMultiplierOnSI */
ZEL_API void ZEL_UNITS_SI_MULTIPLIERS(const double* mass, const double* length, const double* time, const double* force,
                                      int* ierr);

/** The setters of nodes that are alike in name. */
ZEL_API void ZEL_SET_NODE_COORDINATES(const int* node_id, const double* x, const double* y, const double* z, int* ierr);
ZEL_API void ZEL_SET_NODE_COORDINATES_VEC(const int* node_id, const double xyz[3], int* ierr);
ZEL_API void ZEL_SET_NODES(const int* count, const int* node_ids, const double* coordinates, int* ierr);
ZEL_API void ZEL_SET_NODAL_MASSES(const int* count, const int* node_ids, const double* masses, int* ierr);
ZEL_API void ZEL_SET_NODAL_MASS(const int* node_id, const double* mass, int* ierr);
ZEL_API void ZEL_SET_GLOBAL_MASS(const double* mass, const double center[3], const double inertia[9], int* ierr);

/** ZEL_SetNodalInertia; the matrix is used by its upper triangle, after a warning when it is not symmetric. */
ZEL_API void ZEL_SET_NODAL_INERTIA(const int* node_id, const double* xx, const double* yy, const double* zz,
                                   const double* xy, const double* xz, const double* yz, int* ierr);
ZEL_API void ZEL_SET_NODAL_INERTIA_VEC(const int* node_id, const double values[6], int* ierr);
ZEL_API void ZEL_SET_NODAL_INERTIA_ENTRY(const int* node_id, const int* row, const int* column, const double* value,
                                         int* ierr);
ZEL_API void ZEL_SET_NODAL_INERTIA_MAT(const int* node_id, const double matrix[9], int* ierr);

/** ZEL_SetModeVec and ZEL_SetModeEntry for mode shapes; dof counts from 1 to 6. */
ZEL_API void ZEL_SET_MODE_SHAPE(const int* mode, const int* node_id, const double* tx, const double* ty,
                                const double* tz, const double* rx, const double* ry, const double* rz, int* ierr);
ZEL_API void ZEL_SET_MODE_SHAPE_VEC(const int* mode, const int* node_id, const double values[6], int* ierr);
ZEL_API void ZEL_SET_MODE_SHAPE_ENTRY(const int* mode, const int* node_id, const int* dof, const double* value,
                                      int* ierr);

/** ZEL_SetModeArray with the values of a dense array, v(6, count) of Fortran. */
ZEL_API void ZEL_SET_MODE_ARRAY(const int* mode, const int* kind, const int* count, const int* node_ids,
                                const double* values, int* ierr);

/** ZEL_SetModeVec and ZEL_ModeByNode for modal stress and strain; mode 0 names the pre-stress and the pre-strain. */
ZEL_API void ZEL_SET_MODAL_STRESS(const int* mode, const int* node_id, const double* xx, const double* yy,
                                  const double* zz, const double* xy, const double* xz, const double* yz, int* ierr);
ZEL_API void ZEL_SET_MODAL_STRESS_VEC(const int* mode, const int* node_id, const double values[6], int* ierr);
ZEL_API void ZEL_SET_MODAL_STRAIN(const int* mode, const int* node_id, const double* xx, const double* yy,
                                  const double* zz, const double* xy, const double* xz, const double* yz, int* ierr);
ZEL_API void ZEL_SET_MODAL_STRAIN_VEC(const int* mode, const int* node_id, const double values[6], int* ierr);
ZEL_API void ZEL_GET_MODAL_STRESS(const int* mode, const int* node_id, double* xx, double* yy, double* zz, double* xy,
                                  double* xz, double* yz, int* ierr);
ZEL_API void ZEL_GET_MODAL_STRAIN(const int* mode, const int* node_id, double* xx, double* yy, double* zz, double* xy,
                                  double* xz, double* yz, int* ierr);
ZEL_API void ZEL_GET_MODE_COUNT(int* count, int* ierr);

/** Load cases count from 1; an all-blank label is the number of the case. */
ZEL_API void ZEL_SET_MODAL_LOAD(const int* load_case, const int* mode, const double* value, int* ierr);
ZEL_API void ZEL_SET_LOADCASE_LABEL(const int* load_case, const char* label, int label_len, int* ierr);
ZEL_API void ZEL_SET_MODAL_PRELOAD(const int* mode, const double* value, int* ierr);
ZEL_API void ZEL_SET_GENERALIZED_MASS(const int* row_mode, const int* column_mode, const double* value, int* ierr);
ZEL_API void ZEL_SET_GENERALIZED_STIFFNESS(const int* row_mode, const int* column_mode, const double* value, int* ierr);
ZEL_API void ZEL_SET_GENERALIZED_DAMPING(const int* row_mode, const int* column_mode, const double* value, int* ierr);

/**
 * For M modes a Fortran program declares invariants 3 and 4 as v(M,3), 5 as v(M,3,M) with mode i last, 7 as v(3,3) with
 * (column, row), 8 as v(3,3,M) with (column, row, k), 9 as v(3,3,M,M) with (column, row, j, i).
 */
ZEL_API void ZEL_SET_INVAR1(const double* value, int* ierr);
ZEL_API void ZEL_SET_INVAR2(const double* values, int* ierr);
ZEL_API void ZEL_SET_INVAR3(const double* values, int* ierr);
ZEL_API void ZEL_SET_INVAR4(const double* values, int* ierr);
ZEL_API void ZEL_SET_INVAR5(const double* values, int* ierr);
ZEL_API void ZEL_SET_INVAR6(const double* values, int* ierr);
ZEL_API void ZEL_SET_INVAR7(const double* values, int* ierr);
ZEL_API void ZEL_SET_INVAR8(const double* values, int* ierr);
ZEL_API void ZEL_SET_INVAR9(const double* values, int* ierr);

/**
 * ZEL_SetFaceList. ZEL_SET_FACE takes 2 to 8 vertices; any other number draws the message "Unable to create a face with
 * %d vertices", creates no face and leaves ierr at 0.
 */
ZEL_API void ZEL_SET_INTERFACE_NODE(const int* node_id, int* ierr);
ZEL_API void ZEL_SET_FACE(const int* vertex_count, const int* node_ids, int* ierr);
ZEL_API void ZEL_SET_FACE_2(const int* a, const int* b, int* ierr);
ZEL_API void ZEL_SET_FACE_3(const int* a, const int* b, const int* c, int* ierr);
ZEL_API void ZEL_SET_FACE_4(const int* a, const int* b, const int* c, const int* d, int* ierr);
ZEL_API void ZEL_SET_FACE_5(const int* a, const int* b, const int* c, const int* d, const int* e, int* ierr);
ZEL_API void ZEL_SET_FACE_6(const int* a, const int* b, const int* c, const int* d, const int* e, const int* f,
                            int* ierr);
ZEL_API void ZEL_SET_FACE_7(const int* a, const int* b, const int* c, const int* d, const int* e, const int* f,
                            const int* g, int* ierr);
ZEL_API void ZEL_SET_FACE_8(const int* a, const int* b, const int* c, const int* d, const int* e, const int* f,
                            const int* g, const int* h, int* ierr);

/**
 * The rows of the transformation from old modes that belong to the selected ones: t(count, M) of Fortran for M modes, so
 * that (components on the selected old modes) = t (components on the new modes). t[count * i + j] is the component of new
 * mode i on the old mode with the number mode_numbers[j]. An unknown number gives zeros and, at the end, ierr 1; so does a
 * database without modes or without transformation, with t untouched. Nothing happens for a count below 1.
 */
ZEL_API void ZEL_GET_TRANSFORM_TO_SELMOD(double* t, const int* mode_numbers, const int* count, int* ierr);

/** ZEL_write_ZEL; of the name, at most 1023 characters are used, without the blanks at their end. */
ZEL_API void ZEL_WRITE_ZEL(const char* name, int name_len, int* ierr);

/** ZEL_WriteWithOptions; name and options without the blanks at their ends. */
ZEL_API void ZEL_WRITE_WITH_OPTIONS(const char* name, int name_len, const char* options, int options_len, int* ierr);

/**
 * ZEL_AnsysAddGenMass for the two groups of modes, whose failure does not stop the write, then ZEL_write_ZEL. The name is
 * taken as it is, blanks at its end included.
 */
ZEL_API void ZEL_WRITE_ANSYS_ZEL(const char* name, int name_len, const int* count1, const int* count2, int* ierr);

/* ---- Module identification ----------------------------------------------------------------------------------------- */

/** Name and version of a source module, for example "zelmsg 0.2.0". The text is the library's. */
ZEL_API const char* zelmsg_VersionId(void);
ZEL_API const char* zelcreate_VersionId(void);
ZEL_API const char* zelset_VersionId(void);
ZEL_API const char* zelunits_VersionId(void);
ZEL_API const char* zeldata_VersionId(void);
ZEL_API const char* zeltoc_VersionId(void);
ZEL_API const char* zelread_VersionId(void);
ZEL_API const char* zeltools_VersionId(void);
ZEL_API const char* zelwrite_VersionId(void);
ZEL_API const char* zelcoarse_VersionId(void);
ZEL_API const char* zelcompare_VersionId(void);
ZEL_API const char* zelinvar_VersionId(void);
ZEL_API const char* zel_fortran_VersionId(void);

#ifdef __cplusplus
}
#endif

#endif
