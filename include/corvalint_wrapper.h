/* clang-format off: the rules below stand in two columns. */
/*
 * corvalint_wrapper: a MIDI bridge between iOS devices on USB and the MIDI world of this machine.
 *
 * The host starts the service once and from then on only asks: which MIDI inputs ("sources") and
 * outputs ("destinations") there are, what they are called, whether they are on; and it switches
 * them on and off. Everything else happens on the library's own threads.
 *
 * Rules that hold for every function
 *
 * Calling.    Plain C functions with undecorated names, x86-64 Windows calling convention. Load
 *             the library by name or link to its import library. Call from an ordinary thread,
 *             never from DllMain. Any thread may call; calls of several threads at once are
 *             allowed.
 * Life.       There is no stop. corvalintServerStart pins the module: it stays in the process
 *             until the process ends, and FreeLibrary does not unload it.
 * When.       Only the start function does anything to the process. Every other function may be
 *             called before it and then finds nothing: counts of 0, every id unknown. After the
 *             start the counts stay 0 until the first scan of this machine's MIDI devices has
 *             finished, some milliseconds later. The lists are scanned again every five seconds.
 * Waiting.    The asking functions do not wait. The two that switch wait for a scan that is under
 *             way, and open or close a MIDI device, which takes as long as its driver takes: call
 *             them where a second does not matter.
 * Identity.   An endpoint has an id, which stays the same while the device is present. A device
 *             that was unplugged and returns has a new id, and ids mean nothing in another run.
 *             Position is the place in the list, counted from 0, and shifts when a device before
 *             it goes. Use positions only to learn ids, and ids for everything else.
 * Unknown id. Not an error: the function answers 0, or does nothing.
 * Names.      Bytes in the ANSI code page of the system, not text that ends in a zero. Ask for the
 *             length, then for each byte at 0 .. length - 1.
 * Truth.      A true/false result is one byte that is 0 or 1. In C# declare it as [return:
 *             MarshalAs(UnmanagedType.I1)] bool (U1 serves too); a bool without that attribute
 *             reads four bytes, of which three mean nothing.
 * Exceptions. A position outside its range raises the C++ exception std::out_of_range with the
 *             text "invalid vector<T> subscript" (list) or "invalid string position" (name). Only
 *             a host built with the library's own compiler and C++ runtime can catch it; in any
 *             other host it ends the process. Ask only for positions 0 .. count - 1, right after
 *             asking for the count. A device may still vanish between the two: a host that can
 *             catch should catch, any other keeps the walk short, and never asks beyond what it
 *             was told. Nothing else is ever raised.
 * Output.     The library writes diagnostic lines to standard output and a log, pellora.log, into
 *             the folder of the program that loaded it.
 */
/* clang-format on */
#ifndef CORVALINT_WRAPPER_H_
#define CORVALINT_WRAPPER_H_

/* Empty where there is no DLL, and in the DLL's own sources: CMake defines the second name there.
 */
#if defined(_WIN32) && !defined(corvalint_wrapper_EXPORTS)
#define CORVALINT_API __declspec(dllimport)
#else
#define CORVALINT_API
#endif

/* A signed integer of exactly 64 bits. C89 has no name for it, every compiler does. */
#if defined(_MSC_VER)
typedef __int64 corvalint_int64;
#elif defined(__GNUC__)
__extension__ typedef long long corvalint_int64;
#else
typedef long long corvalint_int64;
#endif

/* One byte, 0 for false and 1 for true. */
typedef unsigned char corvalint_bool;

#ifdef __cplusplus
extern "C" {
#endif

/* ---- The service ---- */

/*
 * Starts the service: opens the log, looks for the device libraries, starts the threads. Call it
 * once; a second call starts a second service beside the first. It reports no failure: the log
 * does, and a machine without the device libraries still gets its MIDI lists.
 */
CORVALINT_API void corvalintServerStart(void);

/* Fixed at 14. There is no WiFi transport; the number means nothing. */
CORVALINT_API int corvalintServerWiFiClients(void);

/* Number of iOS devices connected now. 0 before the start. */
CORVALINT_API unsigned int corvalintServerUSBClients(void);

/* Fixed at 1 (true), also before the start. */
CORVALINT_API corvalint_bool corvalintServerScriptActive(void);

/* Fixed at 1337. It counts nothing. */
CORVALINT_API int corvalintServerActiveConnections(void);

/* Does nothing and returns at once; both arguments are ignored. The spelling is the exported name.
 */
CORVALINT_API void initliaze_port_control(corvalint_int64 first, corvalint_int64 second);

/* ---- Which endpoints there are ---- */

/* Number of sources, the MIDI inputs of this machine. Never negative. */
CORVALINT_API corvalint_int64 corvalintServerGetCountOfSources(void);

/* Number of destinations, the MIDI outputs of this machine. Never negative. */
CORVALINT_API corvalint_int64 corvalintServerGetCountOfDestinations(void);

/*
 * Id of the source at a position, 0 .. count of sources - 1. Any int may be an id, 0 and negative
 * ones included. Outside the range: std::out_of_range, see "Exceptions".
 */
CORVALINT_API int get_unique_id_source(int position);

/* The same for destinations, 0 .. count of destinations - 1. */
CORVALINT_API int get_unique_id_destination(int position);

/* ---- Names ---- */

/* Length in bytes of the name of the source with this id. 0 for an unknown id. */
CORVALINT_API unsigned int get_source_name_length(int id);

/* The same for destinations. */
CORVALINT_API unsigned int get_dest_name_length(int id);

/*
 * The byte at a position, 0 .. length - 1, of the name of the source with this id. 0 for an unknown
 * id, whatever the position. Outside the range of a known one: std::out_of_range, see "Exceptions".
 */
CORVALINT_API char corvalintServerGetActiveMIDISourceName(int id, int position);

/* The same for destinations. */
CORVALINT_API char corvalintServerGetActiveMIDIDestName(int id, int position);

/* ---- On and off ---- */

/*
 * Switches the source with this id on if it is off, and off if it is on. A source starts off. On
 * means that its device is open and its MIDI goes to the iOS devices. A device that cannot be
 * opened stays off and becomes unavailable; the next call tries again. The parameter is unsigned
 * here and signed everywhere else: pass the same 32 bits. An unknown id does nothing.
 */
CORVALINT_API void set_source_status(unsigned int id);

/* The same for destinations, which take the MIDI that iOS devices send to them. */
CORVALINT_API void set_destination_status(unsigned int id);

/*
 * 1 if the source with this id is on, 0 if it is off or the id is unknown. For a known id it also
 * writes "true" or "false", without a line end, to standard output.
 */
CORVALINT_API corvalint_bool get_source_status(int id);

/* The same for destinations. */
CORVALINT_API corvalint_bool get_destination_status(int id);

/*
 * 1 if the source with this id can be used as far as is known, 0 if its device could not be opened
 * or the id is unknown. Prints nothing.
 */
CORVALINT_API corvalint_bool get_source_available(int id);

/* The same for destinations. */
CORVALINT_API corvalint_bool get_destination_available(int id);

#ifdef __cplusplus
}
#endif

#endif /* CORVALINT_WRAPPER_H_ */
