"""corvalint_wrapper for hosts in Python 3. One file; copy it beside your program."""

import ctypes
import os

_INT, _UINT, _INT64, _BYTE = ctypes.c_int, ctypes.c_uint, ctypes.c_int64, ctypes.c_ubyte

# Result and arguments of all twenty functions. A bool is one byte, and so is a byte of a name.
_FUNCTIONS = {
    "corvalintServerStart": (None,),
    "corvalintServerUSBClients": (_UINT,),
    "corvalintServerWiFiClients": (_INT,),
    "corvalintServerScriptActive": (_BYTE,),
    "corvalintServerActiveConnections": (_INT,),
    "initliaze_port_control": (None, _INT64, _INT64),
    "corvalintServerGetCountOfSources": (_INT64,),
    "corvalintServerGetCountOfDestinations": (_INT64,),
    "get_unique_id_source": (_INT, _INT),
    "get_unique_id_destination": (_INT, _INT),
    "get_source_name_length": (_UINT, _INT),
    "get_dest_name_length": (_UINT, _INT),
    "corvalintServerGetActiveMIDISourceName": (_BYTE, _INT, _INT),
    "corvalintServerGetActiveMIDIDestName": (_BYTE, _INT, _INT),
    "set_source_status": (None, _UINT),
    "set_destination_status": (None, _UINT),
    "get_source_status": (_BYTE, _INT),
    "get_destination_status": (_BYTE, _INT),
    "get_source_available": (_BYTE, _INT),
    "get_destination_available": (_BYTE, _INT),
}

_ANSI = "mbcs" if os.name == "nt" else "utf-8"


def load(path):
    """The library with its functions declared. Start it with corvalintServerStart(), once."""
    library = ctypes.CDLL(path)
    for name, (result, *arguments) in _FUNCTIONS.items():
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    return library


class Side:
    """The sources or the destinations of a library."""

    def __init__(self, count, id_at, name_length, name_byte, toggle, is_on, is_available):
        self._count = count
        self._id_at = id_at
        self._name_length = name_length
        self._name_byte = name_byte
        self._toggle = toggle
        self._is_on = is_on
        self._is_available = is_available

    def ids(self):
        """The ids in list order.

        A scan may take any number of endpoints out meanwhile, which shifts the others towards the
        first position. So the walk goes there from the last one and misses none, and it asks for the
        count again right before each position: one outside the list would end the process.
        """
        seen = {}
        for position in reversed(range(self._count())):
            if position < self._count():
                seen.setdefault(self._id_at(position))
        return list(reversed(seen))

    def name(self, endpoint):
        """Empty if the endpoint has gone."""
        length = self._name_length(endpoint)
        raw = bytes(self._name_byte(endpoint, at) for at in range(length))
        return raw.decode(_ANSI, "replace")

    def is_on(self, endpoint):
        """Makes the library print a word to standard output."""
        return bool(self._is_on(endpoint))

    def is_available(self, endpoint):
        return bool(self._is_available(endpoint))

    def switch(self, endpoint, on):
        """True if it is so then. Waits for the driver."""
        if self.is_on(endpoint) != on:
            self._toggle(endpoint & 0xFFFFFFFF)
        return self.is_on(endpoint) == on


def sources(library):
    return Side(
        library.corvalintServerGetCountOfSources,
        library.get_unique_id_source,
        library.get_source_name_length,
        library.corvalintServerGetActiveMIDISourceName,
        library.set_source_status,
        library.get_source_status,
        library.get_source_available,
    )


def destinations(library):
    return Side(
        library.corvalintServerGetCountOfDestinations,
        library.get_unique_id_destination,
        library.get_dest_name_length,
        library.corvalintServerGetActiveMIDIDestName,
        library.set_destination_status,
        library.get_destination_status,
        library.get_destination_available,
    )
