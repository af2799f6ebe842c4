#include "host/help.h"

namespace corvalint::host {

std::string CommandsText() {
  return R"(  list              the MIDI sources (inputs) and destinations (outputs) of this
                    desktop: id, on or off, whether it can be used, name
  watch [SECONDS]   shows what changes, and the messages per second that apps
                    play, until the time is over or Ctrl-C: in a terminal as a
                    screen in place, elsewhere as lines
  on TARGET         switches on; as sub-command it stays and watches, since what
                    is on goes off when the program ends
  off TARGET        switches off
  toggle TARGET     switches the other way; as sub-command it stays and watches
  clients           how many iOS devices are connected
  doctor            finds the first broken link between app and desktop
                    (as sub-command only)
  help              this list
  quit              ends the program, and with it the bridge

TARGET is an id or a whole name. "source NAME", "destination NAME" and
"both NAME" say which of two endpoints is meant that share a name.
)";
}

std::string HelpText() {
  return R"(NAME
  corvalint-host - joins the MIDI of iOS devices on the USB cable to a desktop

SYNOPSIS
  corvalint-host [OPTION]... [SUB-COMMAND [ARGUMENT]...]
  corvalint-host --json [--no-start]

DESCRIPTION
  Loads corvalint_wrapper.dll from its own folder, starts its service and does
  what the sub-command says. Without one it asks for commands, or reads them
  from standard input, one on a line. With --json and no sub-command a script
  drives it, see docs/host-tool.md. The bridge ends with the program.

  Ids are new in each run, so on the command line an endpoint goes by its name.
  All names are in UTF-8.

SUB-COMMANDS
)" + CommandsText() +
         R"(
OPTIONS
  --json          answers in documents, one JSON object on each line of standard
                  output; errors are documents too
  --listen=N      doctor: listens N seconds for MIDI (5); 0 leaves that out
  --wait=N        doctor: waits at most N seconds for a device, and as long for
                  each thing that the device does (5)
  --verbose       the library's own lines, otherwise not shown, go to standard
                  error
  --help, -h      this page
  --version       the version
  --              what follows is no option

EXIT STATUS
  0  done
  1  it was tried and did not succeed, e.g. the MIDI device is in use
  2  the command line or a command makes no sense
  3  corvalint_wrapper.dll is missing or is not this program's library
  4  no endpoint has that id or name
  5  more than one endpoint has that id or name
  6  nobody takes the output: its reader has gone, or the disk is full
  7  doctor: a link is broken
  Commands on standard input end with the status of the first that failed.

FILES
  corvalint_wrapper.dll   the library
  pellora.log             what the library writes, 2 MiB at most
  pellora.conf            read at start if it is there
  All three lie in the folder of this program.

EXAMPLES
  corvalint-host list
  corvalint-host on "USB Keyboard"
  corvalint-host --json watch 60
  corvalint-host doctor --listen=20
)";
}

}  // namespace corvalint::host
