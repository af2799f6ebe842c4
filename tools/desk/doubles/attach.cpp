// The whole code of a stand-in: its exports are forwarded to the desk by its .def file, and this
// reference loads the desk together with it.
extern "C" __declspec(dllimport) void DeskAttach();

extern "C" void* const kDeskReference;
void* const kDeskReference = reinterpret_cast<void*>(&DeskAttach);
