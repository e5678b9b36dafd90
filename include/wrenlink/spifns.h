/**
 * @file
 * wrenlink: SPI access to a Marigold chip through a Quill USB-to-SPI adapter.
 */
/**
 * @defgroup wrenlink What all functions share
 *
 * @details `wrenlink/spifns.h` is all that a host needs. It compiles as C99 and as C++17.
 *
 * @par Streams
 * A host opens streams, selects an adapter for each by setting the variable SPIPORT, and submits
 * sequences of reads, writes and settings. The spifns_stream_* functions name a stream by its
 * identifier (0 to 31); the functions of the same name without stream_ work on the one legacy
 * stream of the process, opened with spifns_init().
 *
 * @par Results
 * An int result is 0 for success and 1 for failure unless said otherwise. A failure leaves a code
 * and a text in the calling thread's last-error record; spifns_get_last_error() reads it on that
 * same thread. A successful call leaves an earlier error in place.
 *
 * @par Threads
 * Every function may be called from any thread at any time. Calls on different streams run at once;
 * a host serialises its own calls on one stream. Exchanges with one adapter are serialised across
 * all threads and processes of the machine by the library. A thread that is in a call must not be
 * cancelled, and no thread may be in a call when the library is unloaded.
 *
 * @par Blocking
 * A function that talks to the adapter waits for its turn without a limit and then at most 1000 ms
 * for each exchange; on Windows, 250 ms more until the driver has given a request back that it did
 * not answer in time. If it has not by then, the exchange ends all the same, and nothing is written
 * to the host's buffers later. Functions that do so say "exchanges".
 *
 * @par Units
 * Chip memory is addressed in 16-bit words. Words in host buffers have host byte order.
 *
 * @mainpage
 * @copydetails wrenlink
 */
#ifndef WRENLINK_SPIFNS_H
#define WRENLINK_SPIFNS_H

#include <stddef.h>
#include <stdint.h>

/** Marks what the library exports. */
#if defined(WRENLINK_BUILDING) && defined(__ELF__)
#define SPIFNS_API __attribute__((visibility("default")))
#else
#define SPIFNS_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup wrenlink_version The version of the interface
 *  @{ */

/** What spifns_get_version() returns: the version of this interface. */
#define SPIFNS_VERSION 0x104

/** Returns SPIFNS_VERSION, as the library was built with it. May be called before anything else. */
SPIFNS_API uint32_t spifns_get_version(void);

/** @} */
/** @defgroup wrenlink_errors Errors
 *  @{ */

/** Error codes, as spifns_get_last_error() returns them. */
enum {
    SPIFNS_ERROR_NONE = 0,                 /**< no error */
    SPIFNS_ERROR_ARGUMENT = 1,             /**< an argument, variable or value is not acceptable */
    SPIFNS_ERROR_OUT_OF_MEMORY = 257,      /**< memory could not be allocated */
    SPIFNS_ERROR_NO_DEVICE_SELECTED = 258, /**< the stream has no adapter selected */
    SPIFNS_ERROR_SHARED_MEMORY = 260,      /**< the adapter's shared caches are unavailable */
    SPIFNS_ERROR_TOO_MANY_STREAMS = 261,   /**< 32 streams are open */
    SPIFNS_ERROR_INVALID_STREAM = 262,     /**< no such stream */
    SPIFNS_ERROR_LEGACY_ASSIGNED = 263,    /**< the legacy stream is already open */
    SPIFNS_ERROR_ADDRESS = 265,   /**< a chip address above 0xFFFF; the error address is it */
    SPIFNS_ERROR_LENGTH = 266,    /**< a length above 0xFFFF words */
    SPIFNS_ERROR_NO_DEVICE = 514, /**< no such adapter, or a faulty map file */
    SPIFNS_ERROR_OPEN = 515,      /**< the adapter's driver cannot be opened */
    SPIFNS_ERROR_IO = 516,        /**< the exchange with the driver failed or timed out */
    SPIFNS_ERROR_ADAPTER = 517,   /**< the adapter reported a failure */
    SPIFNS_ERROR_FIRMWARE = 520   /**< the adapter's firmware is too old */
};

/**
 * Returns the calling thread's last error code, 0 when there is none. Stores the low 16 bits of the
 * error address and the text through pointers that are not null. The text belongs to the library
 * and is valid until the next failure or clear on this thread.
 */
SPIFNS_API int spifns_get_last_error(uint16_t* address, const char** text);

/** As spifns_get_last_error(), with all 32 bits of the error address. */
SPIFNS_API int spifns_get_last_error32(uint32_t* address, const char** text);

/** Discards the calling thread's last error; texts obtained before are no longer valid. */
SPIFNS_API void spifns_clear_last_error(void);

/** @} */
/** @defgroup wrenlink_streams Streams
 *  @{ */

/** The identifier that names no stream; spifns_stream_init() stores it when it fails. */
#define SPIFNS_NO_STREAM 0x7FFFFFFFu

/** The most streams that a process can hold open at once. */
#define SPIFNS_MAX_STREAMS 32u

/**
 * Opens a stream and stores its identifier; on failure SPIFNS_NO_STREAM is stored. The first stream
 * of the process looks for the adapters and reads the map file (exchanges, one with each adapter).
 * A new stream has no adapter selected. Errors: 257, 261, 262 (null pointer), 514 (map file).
 */
SPIFNS_API int spifns_stream_init(uint32_t* stream);

/** Opens the legacy stream. Errors: as spifns_stream_init(), and 263; the stream made then stays
 * open. */
SPIFNS_API int spifns_init(void);

/**
 * Closes a stream and clears the last error. Another thread's call that is still working on the
 * stream ends normally. A stream that is not open is no error.
 */
SPIFNS_API void spifns_stream_close(uint32_t stream);

/** As spifns_stream_close(), for the legacy stream; without one it does nothing at all. */
SPIFNS_API void spifns_close(void);

/** Returns the number of open streams. */
SPIFNS_API uint32_t spifns_count_streams(void);

/** @} */
/** @defgroup wrenlink_adapters Adapters
 *  @{ */

/** Receives one port: its selection key (0 to 31), its name, valid during the call, and context. */
typedef void (*spifns_port_callback)(uint32_t key, const char* name, void* context);

/**
 * Calls callback once per port, in ascending order of the selection keys. Without an open stream
 * there are no ports. Waits while another thread opens the first stream.
 */
SPIFNS_API void spifns_enumerate_ports(spifns_port_callback callback, void* context);

/**
 * Writes "quill" and the adapter's id into buffer, cut to size bytes and terminated. Errors: 1
 * "Device ID unavailable when port not open", 1 "Invalid variable or value" (null buffer), 262.
 */
SPIFNS_API int spifns_stream_get_device_id(uint32_t stream, char* buffer, size_t size);

/** @} */
/** @defgroup wrenlink_sequences Sequences of reads, writes and settings
 *  @{ */

/** The kinds of actions, for SpiAction::type; in C++ also SpiAction::Read, Write and SetVar. */
enum {
    SPIFNS_READ = 0,  /**< reads words; u.memory */
    SPIFNS_WRITE = 1, /**< writes words; u.memory */
    SPIFNS_SETVAR = 2 /**< sets a variable; u.variable */
};

/** One element of a sequence: 32 bytes in one of two layouts, chosen by type. */
typedef struct SpiAction {
#ifdef __cplusplus
    enum SpiActionType : uint32_t { Read = 0, Write = 1, SetVar = 2 };
#endif
    uint32_t type; /**< SPIFNS_READ, SPIFNS_WRITE or SPIFNS_SETVAR; any other value is skipped */
    uint32_t reserved; /**< not used */
    /** The two layouts. */
    union {
        /** Of SPIFNS_READ and SPIFNS_WRITE. */
        struct {
            uint32_t reserved0; /**< not used */
            uint32_t address;   /**< first word, 0 to 0xFFFF; above: code 265 */
            uint32_t length;    /**< words, 0 to 0xFFFF; above: code 266 */
            uint32_t reserved1; /**< not used */
            /** The host's buffer of length words: filled by a read, taken by a write; null with a
             * length above 0: code 1. */
            uint16_t* data;
        } memory;
        /** Of SPIFNS_SETVAR. */
        struct {
            const char* var;   /**< variable name; null: code 1 */
            const char* value; /**< value text; null: code 1 */
            void* reserved0;   /**< not used */
        } variable;
    } u;
} SpiAction;

/**
 * Carries out count actions in order (none when count is 0, or above 0x7FFFFFFF). Adjacent reads
 * and writes travel together, up to 1016 bytes each way in one exchange; a setting is applied at
 * its place. The first failure ends the sequence; what was done before it stays done.
 *
 * Settings: SPIPORT (port number, adapter id or map-file key), QUILLMODE ("SPI", "JTAG"),
 * SPI_DELAY, SPICLOCK (kHz: below 2000 rounded to the nearest delay and limited by SPIMAXCLOCK; no
 * delay reaches clocks below 0.1211, of whose delay the low 16 bits are set; 0, negative clocks and
 * those below 0.0000037 give the slowest delay that can be sent, 65534; from 2000 on the fastest,
 * 0), SPIMUL (0 to 16, -1 for 0), SPICMDBITS, SPICMDREADBITS, SPICMDWRITEBITS, SPIMAXCLOCK (kHz).
 *
 * Errors: 1, 257, 258, 260, 262, 265, 266, 514 to 517, 520.
 */
SPIFNS_API int spifns_stream_sequence(uint32_t stream, SpiAction* actions, uint32_t count);

/** As spifns_stream_sequence(), on the legacy stream. */
SPIFNS_API int spifns_sequence(SpiAction* actions, uint32_t count);

/** @} */
/** @defgroup wrenlink_variables Variables
 *  @{ */

/** One record of the table of settable variables: 24 bytes. */
typedef struct spifns_variable {
    const char* name;          /**< the variable's name */
    const char* default_value; /**< its value in a new stream */
    uint64_t flag;             /**< 1 for the variables that choose and open a port, else 0 */
} spifns_variable;

/**
 * Reads a variable: SPIPORT, QUILLVERSION, SPI_DELAY, SPICLOCK (kHz), SPIMAXCLOCK (kHz), MUTEXNAME,
 * SPICMDBITS, SPICMDREADBITS, SPICMDWRITEBITS, SPIMUL, in any case; any other name gives "". The
 * text belongs to the stream and is valid until the same variable is read again or the stream is
 * closed. Never null; "" with code 262 when the stream is missing. SPI_DELAY and SPICLOCK may
 * exchange; when that fails they read as delay 0 and the last error tells why.
 */
SPIFNS_API const char* spifns_stream_getvar(uint32_t stream, const char* name);

/** As spifns_stream_getvar(), on the legacy stream. */
SPIFNS_API const char* spifns_getvar(const char* name);

/** Stores the address of the library's table of settable variables, and the number of its records.
 * A null pointer is not written through. */
SPIFNS_API void spifns_getvarlist(const spifns_variable** list, uint32_t* count);

/** @} */
/** @defgroup wrenlink_chip The chip's processor, and commands
 *  @{ */

/** The state of the chip's XAP processor. */
typedef enum spifns_xap_state {
    SPIFNS_XAP_ERROR = -1,  /**< it could not be asked; the last error tells why */
    SPIFNS_XAP_RUNNING = 0, /**< it runs */
    SPIFNS_XAP_STOPPED = 1  /**< it is stopped */
} spifns_xap_state;

/** Asks whether the chip's XAP processor is stopped. Exchanges. Errors: 262, 515 to 517. */
SPIFNS_API spifns_xap_state spifns_stream_marigold_xap_stopped(uint32_t stream);

/** As spifns_stream_marigold_xap_stopped(), on the legacy stream. */
SPIFNS_API spifns_xap_state spifns_marigold_xap_stopped(void);

/**
 * Prepares the adapter for MGCMD commands. Exchanges. Errors: 262, 515, 516, 520; without a
 * selected adapter as spifns_stream_mgcmd_cmd().
 */
SPIFNS_API int spifns_stream_mgcmd_init(uint32_t stream, uint16_t first, uint16_t second);

/** As spifns_stream_mgcmd_init(), on the legacy stream. */
SPIFNS_API int spifns_mgcmd_init(uint16_t first, uint16_t second);

/**
 * Sends an MGCMD command of length words (0 to 508) and overwrites them with the answer. With a
 * nonzero flag a failure report of the adapter is an error and leaves words untouched; with flag 0
 * the answer is delivered as it stands. Exchanges.
 *
 * Errors: 1 "MGCMD too long", 1 "Invalid variable or value" (null words), 262, 515 to 517,
 * 520 (firmware 1.0 to 1.4). Without a selected adapter nothing is stored: "MGCMD cmd failed" is
 * appended to what the last error held, and the result is 1 only when that had a nonzero code.
 */
SPIFNS_API int spifns_stream_mgcmd_cmd(uint32_t stream, uint16_t* words, uint16_t length,
                                       uint32_t flag);

/** As spifns_stream_mgcmd_cmd(), on the legacy stream. */
SPIFNS_API int spifns_mgcmd_cmd(uint16_t* words, uint16_t length, uint32_t flag);

/**
 * Carries out a named command, in any case: "DFU" puts the adapter into DFU mode, "SPISLOWER"
 * lengthens the SPI delay by a quarter plus one. Any other name, and null, does nothing. Always
 * returns null: a failure shows in the last error only. Exchanges.
 */
SPIFNS_API const char* spifns_stream_command(uint32_t stream, const char* command);

/** As spifns_stream_command(), on the legacy stream. */
SPIFNS_API const char* spifns_command(const char* command);

/** Kept for hosts that call it: no effect. */
SPIFNS_API void spifns_stream_chip_select(void);

/** Kept for hosts that call it: no effect. */
SPIFNS_API void spifns_chip_select(void);

/** @} */
/** @defgroup wrenlink_debug Debug text
 *  @{ */

/** Receives one debug text of a stream, valid during the call, on the thread that works. */
typedef void (*spifns_debug_callback)(const char* text, void* context);

/** Receives one debug text of the legacy stream, valid during the call, on the thread that works.
 */
typedef void (*spifns_legacy_debug_callback)(const char* text);

/** Sets the receiver of a stream's debug text; a null callback switches it off. */
SPIFNS_API void spifns_stream_set_debug_callback(uint32_t stream, spifns_debug_callback callback,
                                                 void* context);

/** Sets the receiver of the legacy stream's debug text. callback is the address of a location that
 * holds the host's function; both must stay valid until another is set or the stream is closed. */
SPIFNS_API void spifns_set_debug_callback(spifns_legacy_debug_callback* callback);

/** @} */

#ifdef __cplusplus
}

static_assert(sizeof(SpiAction) == 32, "an action is 32 bytes");
static_assert(offsetof(SpiAction, type) == 0 && offsetof(SpiAction, u.memory.address) == 12 &&
                  offsetof(SpiAction, u.memory.length) == 16 &&
                  offsetof(SpiAction, u.memory.data) == 24 &&
                  offsetof(SpiAction, u.variable.var) == 8 &&
                  offsetof(SpiAction, u.variable.value) == 16,
              "the two layouts of an action");
static_assert(sizeof(spifns_variable) == 24 && offsetof(spifns_variable, default_value) == 8 &&
                  offsetof(spifns_variable, flag) == 16,
              "a record of the variable table is 24 bytes");
#endif

#endif
