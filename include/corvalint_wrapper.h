/**
 * @mainpage corvalint_wrapper, for the author of a host
 *
 * A MIDI bridge between iOS devices on USB and the MIDI devices of this machine. A host starts it
 * once. From then on it only asks which MIDI inputs ("sources") and outputs ("destinations") there
 * are, what they are called and whether they are on, and it switches them on and off. Everything
 * else happens on the library's own threads. These rules hold for all functions of
 * corvalint_wrapper.h; each function's own contract stands there.
 *
 * @par Calling
 * C linkage, undecorated names and the one calling convention of 64-bit Windows ("cdecl" where a
 * language asks), in an x86-64 process. Link with corvalint_wrapper.lib or
 * libcorvalint_wrapper.dll.a, or load the DLL and bind the functions by name. Never call from
 * DllMain, nor from a callback of winmm.
 *
 * @par Widths
 * int and unsigned int have 32 bits, #corvalint_int64 has 64. A char is one byte of a name, not a
 * character: in C# it is a byte. #corvalint_bool is one byte, 0 or 1, and what surrounds it in the
 * register means nothing: a C# bool needs [return: MarshalAs(UnmanagedType.I1)], a BOOL or an int
 * reads rubbish.
 *
 * @par Threads
 * Any thread may call any function, several threads at once. An answer is true for the moment at
 * which it was given. The library never calls its host.
 *
 * @par One start and no stop
 * Only corvalintServerStart() does anything to the process: it pins the module, so that FreeLibrary
 * does not unload it, starts threads that run until the process ends, initialises Windows Sockets,
 * asks Windows for timers of one millisecond and, if Apple's software is installed, calls
 * SetDllDirectory with Apple's folder; a host that calls SetDllDirectory itself does so afterwards.
 * Call the start once. The other functions may be called before it and then find nothing: counts of
 * 0, every id unknown. There is no stop; what is on goes off with the process.
 *
 * @par The lists
 * After the start both counts are 0 until the first scan of this machine's MIDI devices has ended,
 * as a rule some milliseconds later. A scan follows every five seconds, and nothing else changes
 * the lists; it changes both of them in one moment. A new endpoint stands at the end, and is off.
 * One whose device has gone is erased, and those behind it move up. Two devices with one name are
 * one endpoint. The ports that iOS devices publish on this machine are not listed.
 *
 * @par Ids and positions
 * An id names an endpoint as long as its device stays. A device that returns has a new id, and so
 * has every device in the next run; any int may be an id, 0 and negative ones too. A position is a
 * place in a list, counted from 0, and the next scan may move it. Use positions to learn ids and
 * ids for everything else.
 *
 * @par The race between them
 * A scan may come between asking for the count and asking for a position, and take any number of
 * endpoints out. Walk from the last position to the first, and ask for the count again right before
 * each position: then you miss none, and only a scan between those two calls can leave you with a
 * position outside the list. You may meet an id twice: leave out those that you have seen. New
 * endpoints wait for your next walk.
 * @code
 * int position = (int)corvalintServerGetCountOfSources();
 * while (position-- > 0) {
 *   if (position >= corvalintServerGetCountOfSources()) continue;
 *   add_unless_there(&ids, get_unique_id_source(position));
 * }
 * @endcode
 *
 * @par Unknown ids
 * Not an error: the function answers 0, or does nothing. An endpoint may go between two calls.
 *
 * @par Positions outside their range
 * The two failures of this interface, which are exceptions of the C++ runtime that the library was
 * built with (GCC's): std::out_of_range with the text "invalid vector<T> subscript" for a position
 * in a list, and "invalid string position" for a position in the name of a known id. A C++ host
 * built with MinGW-w64 GCC can catch them. Any other host, in Visual C++, C#, Python, C or another
 * language, cannot count on that: as a rule the process ends. So ask for a position below the count
 * or the length that you were told, and for no other. No function raises anything else.
 *
 * @par Names
 * At most 32 bytes (31 unless a driver leaves out the zero behind its name), in the ANSI code page
 * of the process (CP_ACP), with no zero at the end: ask for the length, then for each byte at
 * 0 .. length - 1. The name of an id never changes. A name may be empty, so a length of 0 does not
 * prove that the id is unknown.
 *
 * @par Waiting
 * Counts, ids, names, availability and the fixed values wait for no device, driver or file. The two
 * questions for the state also print a word, and so wait for a standard output that nobody reads.
 * Switching waits for a scan that is under way, and for the driver that opens or closes the device:
 * milliseconds as a rule, a second or more if a driver keeps its buffers. Call the two that switch,
 * and the start, which loads Apple's libraries, where that does not matter.
 *
 * @par Standard output
 * The library prints diagnostic lines to the standard output of the process and flushes each. A
 * host that hands its standard output to a pipe must read it, or the library's threads stand still.
 * A host without standard output needs to do nothing. The lines go through the C runtime
 * msvcrt.dll, to where the process's handle led when that was loaded, often at the start of the
 * process: what a language lets you put in the place of its own output (Console.SetOut, sys.stdout)
 * does not change that, and _dup2 of msvcrt.dll does. One line, of an OSC datagram that could not
 * be sent, goes to standard error.
 *
 * @par Files
 * The folder is that of the program, not that of the DLL. The log pellora.log, with the identifiers
 * of the iOS devices, is written there; beyond 2 MiB it begins anew. If it cannot be written there
 * is no log, and all else works. pellora.conf is read there at the start, if it exists.
 */
/**
 * @file
 * @brief The twenty functions of the library. The @ref index "rules" for all of them come first.
 */
#ifndef CORVALINT_WRAPPER_H_
#define CORVALINT_WRAPPER_H_

/** @brief How the functions are imported; nothing for you to define. CMake defines the name ending
 *  in _EXPORTS while it builds the DLL. */
#if defined(_WIN32) && !defined(corvalint_wrapper_EXPORTS)
#define CORVALINT_API __declspec(dllimport)
#elif defined(__GNUC__) && !defined(_WIN32)
#define CORVALINT_API __attribute__((visibility("default")))
#else
#define CORVALINT_API
#endif

/** @brief A signed integer of 64 bits: C89 has no name for it, every compiler does. */
#if defined(_MSC_VER)
typedef __int64 corvalint_int64;
#elif defined(__GNUC__)
__extension__ typedef long long corvalint_int64;
#else
typedef long long corvalint_int64;
#endif

/** @brief One byte, 0 for false and 1 for true. */
typedef unsigned char corvalint_bool;

#ifdef __cplusplus
extern "C" {
#endif

/** @name The service
 *  @{ */

/**
 * @brief Starts the service: opens the log, loads Apple's libraries, starts the threads.
 *
 * Call it once: a second call starts a second service beside the first. It reports no failure, the
 * log does. Without Apple's libraries there are no iOS devices, and the lists work all the same.
 */
CORVALINT_API void corvalintServerStart(void);

/**
 * @brief Number of iOS devices that are connected now.
 * @return 0 before the start. A device that leaves is counted for up to a second longer.
 */
CORVALINT_API unsigned int corvalintServerUSBClients(void);

/**
 * @brief A fixed value that hosts expect; there is no WiFi transport.
 * @return 14, at any time.
 */
CORVALINT_API int corvalintServerWiFiClients(void);

/**
 * @brief A fixed value that hosts expect.
 * @return 1, at any time.
 */
CORVALINT_API corvalint_bool corvalintServerScriptActive(void);

/**
 * @brief A fixed value that hosts expect; it counts nothing.
 * @return 1337, at any time.
 */
CORVALINT_API int corvalintServerActiveConnections(void);

/**
 * @brief Does nothing and returns at once; hosts expect it under this spelling.
 * @param first Ignored.
 * @param second Ignored.
 */
CORVALINT_API void initliaze_port_control(corvalint_int64 first, corvalint_int64 second);

/** @}
 *  @name Which endpoints there are
 *  @{ */

/**
 * @brief Number of sources, the MIDI inputs of this machine.
 * @return 0 before the start and until the first scan has ended. Never negative.
 */
CORVALINT_API corvalint_int64 corvalintServerGetCountOfSources(void);

/**
 * @brief Number of destinations, the MIDI outputs of this machine.
 * @return 0 before the start and until the first scan has ended. Never negative.
 */
CORVALINT_API corvalint_int64 corvalintServerGetCountOfDestinations(void);

/**
 * @brief Id of the source at a position.
 * @param position 0 .. count of sources - 1. Any other raises "invalid vector<T> subscript".
 * @return The id, which may be any int.
 */
CORVALINT_API int get_unique_id_source(int position);

/**
 * @brief Id of the destination at a position.
 * @param position 0 .. count of destinations - 1. Any other raises "invalid vector<T> subscript".
 * @return The id, which may be any int.
 */
CORVALINT_API int get_unique_id_destination(int position);

/** @}
 *  @name Names
 *  @{ */

/**
 * @brief Length of a source's name.
 * @param id Id of the source.
 * @return Bytes, 32 at most. 0 for an unknown id.
 */
CORVALINT_API unsigned int get_source_name_length(int id);

/**
 * @brief Length of a destination's name. Its function alone is named "dest".
 * @param id Id of the destination.
 * @return Bytes, 32 at most. 0 for an unknown id.
 */
CORVALINT_API unsigned int get_dest_name_length(int id);

/**
 * @brief One byte of a source's name.
 * @param id Id of the source.
 * @param position 0 .. length - 1. Any other raises "invalid string position" if the id is known.
 * @return The byte. 0 for an unknown id, whatever the position.
 */
CORVALINT_API char corvalintServerGetActiveMIDISourceName(int id, int position);

/**
 * @brief One byte of a destination's name.
 * @param id Id of the destination.
 * @param position 0 .. length - 1. Any other raises "invalid string position" if the id is known.
 * @return The byte. 0 for an unknown id, whatever the position.
 */
CORVALINT_API char corvalintServerGetActiveMIDIDestName(int id, int position);

/** @}
 *  @name On and off
 *  @{ */

/**
 * @brief Switches a source on if it is off, and off if it is on.
 *
 * On means that its device is open, that its MIDI goes to the iOS devices, and that they are told
 * of it. A device that cannot be opened, because another program has it for example, stays off and
 * becomes unavailable; the next call tries again. Waits, see "Waiting".
 * @param id Id of the source: the same 32 bits as the signed id of the other functions. An unknown
 * one does nothing.
 */
CORVALINT_API void set_source_status(unsigned int id);

/**
 * @brief Switches a destination on if it is off, and off if it is on.
 *
 * On means that its device is open, that it plays the MIDI which iOS devices send to it, and that
 * they are told of it. A device that cannot be opened stays off and becomes unavailable; the next
 * call tries again. Waits, see "Waiting".
 * @param id Id of the destination: the same 32 bits as the signed id of the other functions. An
 * unknown one does nothing.
 */
CORVALINT_API void set_destination_status(unsigned int id);

/**
 * @brief Whether a source is on. For a known id it also prints "true" or "false", without line end.
 * @param id Id of the source.
 * @return 1 if it is on, 0 if it is off or the id is unknown.
 */
CORVALINT_API corvalint_bool get_source_status(int id);

/**
 * @brief Whether a destination is on. For a known id it also prints "true" or "false", without line
 * end.
 * @param id Id of the destination.
 * @return 1 if it is on, 0 if it is off or the id is unknown.
 */
CORVALINT_API corvalint_bool get_destination_status(int id);

/**
 * @brief Whether a source could be opened when that was last tried. Prints nothing.
 * @param id Id of the source.
 * @return 1 if it could, or was never tried; 0 if it could not, or the id is unknown.
 */
CORVALINT_API corvalint_bool get_source_available(int id);

/**
 * @brief Whether a destination could be opened when that was last tried. Prints nothing.
 * @param id Id of the destination.
 * @return 1 if it could, or was never tried; 0 if it could not, or the id is unknown.
 */
CORVALINT_API corvalint_bool get_destination_available(int id);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* CORVALINT_WRAPPER_H_ */
