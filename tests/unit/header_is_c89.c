/* The public header, read by a C89 compiler. Each assignment fails to compile when the type of its
   function changes, and the arrays fail when a result type has another width than a host expects.
 */
#include "corvalint_wrapper.h"

typedef char Int64IsEightBytes[sizeof(corvalint_int64) == 8 ? 1 : -1];
typedef char Int64IsSigned[(corvalint_int64)-1 < 0 ? 1 : -1];
typedef char BoolIsOneByte[sizeof(corvalint_bool) == 1 ? 1 : -1];
typedef char IntIsFourBytes[sizeof(int) == 4 ? 1 : -1];

struct Wrapper {
  Int64IsEightBytes* int64Size;
  Int64IsSigned* int64Sign;
  BoolIsOneByte* boolSize;
  IntIsFourBytes* intSize;
  void (*nothing)(void);
  int (*fixedNumber[2])(void);
  unsigned int (*clients)(void);
  corvalint_bool (*script)(void);
  void (*control)(corvalint_int64, corvalint_int64);
  corvalint_int64 (*count[2])(void);
  int (*idAt[2])(int);
  unsigned int (*nameLength[2])(int);
  char (*nameByte[2])(int, int);
  void (*toggle[2])(unsigned int);
  corvalint_bool (*flag[4])(int);
};

void BindAll(struct Wrapper* wrapper);

void BindAll(struct Wrapper* wrapper) {
  wrapper->nothing = corvalintServerStart;
  wrapper->fixedNumber[0] = corvalintServerWiFiClients;
  wrapper->fixedNumber[1] = corvalintServerActiveConnections;
  wrapper->clients = corvalintServerUSBClients;
  wrapper->script = corvalintServerScriptActive;
  wrapper->control = initliaze_port_control;
  wrapper->count[0] = corvalintServerGetCountOfSources;
  wrapper->count[1] = corvalintServerGetCountOfDestinations;
  wrapper->idAt[0] = get_unique_id_source;
  wrapper->idAt[1] = get_unique_id_destination;
  wrapper->nameLength[0] = get_source_name_length;
  wrapper->nameLength[1] = get_dest_name_length;
  wrapper->nameByte[0] = corvalintServerGetActiveMIDISourceName;
  wrapper->nameByte[1] = corvalintServerGetActiveMIDIDestName;
  wrapper->toggle[0] = set_source_status;
  wrapper->toggle[1] = set_destination_status;
  wrapper->flag[0] = get_source_status;
  wrapper->flag[1] = get_destination_status;
  wrapper->flag[2] = get_source_available;
  wrapper->flag[3] = get_destination_available;
}
