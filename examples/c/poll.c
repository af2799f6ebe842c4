/*
 * A host in C: polls the lists, tells what comes and goes, and switches on what it is told to.
 *
 *   poll [SECONDS] [NAME...]
 *
 * It runs for 10 seconds or as many as you say, and switches each endpoint of one of those names on
 * as soon as it is there. What is on goes off with the process.
 *
 * The library prints to standard output, so this program writes to standard error.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

#include "corvalint_wrapper.h"

#define MOST_ENDPOINTS 256
#define MOST_NAME_BYTES 32

/* The functions that exist once for sources and once for destinations. */
typedef struct Side {
  const char* title;
  corvalint_int64 (*count)(void);
  int (*idAt)(int position);
  unsigned int (*nameLength)(int id);
  char (*nameByte)(int id, int position);
  void (*toggle)(unsigned int id);
  corvalint_bool (*isOn)(int id);
  corvalint_bool (*isAvailable)(int id);
} Side;

typedef struct Endpoint {
  int id;
  char name[MOST_NAME_BYTES + 1];
} Endpoint;

typedef struct List {
  Endpoint endpoints[MOST_ENDPOINTS];
  int count;
} List;

static const Endpoint* find(const List* list, int id) {
  int i;
  for (i = 0; i < list->count; ++i) {
    if (list->endpoints[i].id == id) return &list->endpoints[i];
  }
  return NULL;
}

/* First the ids alone. A scan may take any number of endpoints out meanwhile, which shifts the
   others towards the first position. So the walk goes there from the last one and misses none, and
   it asks for the count again right before each position, which may have left the list. */
static void readIds(const Side* side, List* list) {
  int position = (int)side->count();
  list->count = 0;
  while (position-- > 0 && list->count < MOST_ENDPOINTS) {
    int id;
    if (position >= side->count()) continue;
    id = side->idAt(position);
    if (find(list, id) == NULL) list->endpoints[list->count++].id = id;
  }
}

/* Then all else by id: if it has gone since, its name has length 0. */
static void readName(const Side* side, Endpoint* endpoint) {
  unsigned int length = side->nameLength(endpoint->id);
  unsigned int i;
  if (length > MOST_NAME_BYTES) length = MOST_NAME_BYTES;
  for (i = 0; i < length; ++i) endpoint->name[i] = side->nameByte(endpoint->id, (int)i);
  endpoint->name[length] = '\0';
}

static int isWanted(const char* name, char** wanted, int wantedCount) {
  int i;
  for (i = 0; i < wantedCount; ++i) {
    if (strcmp(name, wanted[i]) == 0) return 1;
  }
  return 0;
}

/* The switch toggles, so look first. A device that another program uses stays off. */
static void switchOn(const Side* side, const Endpoint* endpoint) {
  if (!side->isOn(endpoint->id)) side->toggle((unsigned int)endpoint->id);
  if (side->isOn(endpoint->id)) {
    fprintf(stderr, "%s on: %s\n", side->title, endpoint->name);
  } else {
    fprintf(stderr, "%s cannot be opened: %s\n", side->title, endpoint->name);
  }
}

/* Tells what is new in `now`, then what is gone since `before`, which becomes `now`. */
static void poll(const Side* side, List* before, char** wanted, int wantedCount) {
  List now;
  int i;
  readIds(side, &now);
  for (i = now.count - 1; i >= 0; --i) {
    Endpoint* endpoint = &now.endpoints[i];
    readName(side, endpoint);
    if (find(before, endpoint->id) != NULL) continue;
    fprintf(stderr, "%s %d: %s, %s\n", side->title, endpoint->id, endpoint->name,
            side->isAvailable(endpoint->id) ? "available" : "unavailable");
    if (isWanted(endpoint->name, wanted, wantedCount)) switchOn(side, endpoint);
  }
  for (i = before->count - 1; i >= 0; --i) {
    if (find(&now, before->endpoints[i].id) == NULL) {
      fprintf(stderr, "%s gone: %s\n", side->title, before->endpoints[i].name);
    }
  }
  *before = now;
}

int main(int argc, char** argv) {
  static List sourceList;
  static List destinationList;
  const Side sources = {"source",
                        corvalintServerGetCountOfSources,
                        get_unique_id_source,
                        get_source_name_length,
                        corvalintServerGetActiveMIDISourceName,
                        set_source_status,
                        get_source_status,
                        get_source_available};
  const Side destinations = {"destination",
                             corvalintServerGetCountOfDestinations,
                             get_unique_id_destination,
                             get_dest_name_length,
                             corvalintServerGetActiveMIDIDestName,
                             set_destination_status,
                             get_destination_status,
                             get_destination_available};
  const int seconds = argc > 1 ? atoi(argv[1]) : 10;
  char** wanted = argv + 2;
  const int wantedCount = argc > 2 ? argc - 2 : 0;
  unsigned int devices = 0;
  int i;

  SetConsoleOutputCP(GetACP()); /* names are in this code page, consoles often in another */
  corvalintServerStart();
  for (i = 0; i < seconds * 4; ++i) {
    const unsigned int devicesNow = corvalintServerUSBClients();
    poll(&sources, &sourceList, wanted, wantedCount);
    poll(&destinations, &destinationList, wanted, wantedCount);
    if (devicesNow != devices) fprintf(stderr, "iOS devices: %u\n", devicesNow);
    devices = devicesNow;
    Sleep(250);
  }
  fprintf(stderr, "sources: %d, destinations: %d\n", sourceList.count, destinationList.count);
  return 0;
}
