/* The public header in the languages it is made for: this file is compiled as C99 and, through header.cpp, C++11. */
#include "zat_ms.h"

#include <string.h>

static int Patient(void* pvData) {
  (void)pvData;
  return 0;
}

int TillInPlainC(zat_ms_create_fn create, zat_ms_do_fn work, zat_ms_destroy_fn destroy);
int TillInPlainC(zat_ms_create_fn create, zat_ms_do_fn work, zat_ms_destroy_fn destroy) {
  char request[ZAT_MS_BUFFER] = "1000000000010C000000125000";
  char answer[ZAT_MS_BUFFER];
  void* till = create(0);
  int result;
  memset(answer, 0, sizeof answer);
  result = work(till, request, answer, Patient, 0);
  while (result == ZAT_MS_MORE) {
    memset(answer, 0, sizeof answer);
    result = work(till, 0, answer, Patient, 0);
  }
  destroy(till);
  return result == ZAT_MS_END && memcmp(answer + ZAT_MS_HEADER, ZAT_MS_LOST, 2) != 0;
}

/* The functions themselves are declared with exactly those types. */
zat_ms_create_fn procCreate = eftp_create;
zat_ms_do_fn procDo = eftp_do;
zat_ms_destroy_fn procDestroy = eftp_destroy;
