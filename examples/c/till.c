/* A till in C: takes one payment.  till_c KOPECKS, for example till_c 125000 for 1250.00
   Ends with 0 when it is paid, 1 when it is not, and 5 when nobody knows. */
#include <stdio.h>
#include <string.h>
#include <zat_ms.h>

enum outcome { PAID, NOT_PAID, UNKNOWN = 5 };

/* Where a response "60" has its code: behind operation, amount, currency, date, merchant and reference number. */
#define RESPONSE_CODE (ZAT_MS_HEADER + 1 + 12 + 3 + 14 + 15 + 12)

/* What the last answer of an exchange makes of it. A refusal of the first call is the one that sent nothing. */
static enum outcome conclude(const char* answer, int first, int response, int approved) {
  const char* reason = answer + ZAT_MS_HEADER;
  if (answer[0] == 0) return approved ? PAID : response ? NOT_PAID : UNKNOWN;
  printf("%.64s\n", reason);
  if (!memcmp(reason, ZAT_MS_END_BAD, 2)) return approved ? UNKNOWN : NOT_PAID;
  return first && memcmp(reason, ZAT_MS_LOST, 2) ? NOT_PAID : UNKNOWN;
}

/* Sends a request in a session of its own and prints the receipt (Windows-1251). */
static enum outcome work(char* request) {
  char answer[ZAT_MS_BUFFER + 1] = {0};
  int first = 1, response = 0, approved = 0;
  enum outcome outcome;
  void* session = eftp_create(NULL);
  while (eftp_do(session, request, answer, NULL, NULL) == ZAT_MS_MORE) {
    if (!memcmp(answer, "32", 2)) printf("%s\n", answer + ZAT_MS_HEADER + 1);
    if (!memcmp(answer, "60", 2)) {
      response = 1;
      approved = !memcmp(answer + RESPONSE_CODE, "00", 2);
    }
    memset(answer, 0, sizeof answer);
    request = NULL; /* from now on the answer is collected */
    first = 0;
  }
  outcome = conclude(answer, first, response, approved);
  eftp_destroy(session); /* waits for a terminal that is still at work */
  return outcome;
}

int main(int argc, char** argv) {
  /* operation 10 (sale) or 20 (transaction data), terminal 1, 0C = 12 bytes of data: amount, or reference number */
  char sale[] = "1000000000010C000000000000", last[] = "2000000000010C000000000000";
  size_t digits = argc == 2 ? strlen(argv[1]) : 0;
  enum outcome outcome;
  if (digits < 1 || digits > 12 || strspn(argv[1], "0123456789") != digits)
    return fprintf(stderr, "usage: till_c KOPECKS\n"), NOT_PAID;
  memcpy(sale + strlen(sale) - digits, argv[1], digits);
  outcome = work(sale);
  if (outcome == UNKNOWN) {
    /* Never pay again before that is cleared up. A reference number of zeros asks for the last payment. */
    puts("UNKNOWN. Compare it with the last payment that the terminal knows:");
    if (work(last) != PAID) puts("it does not say");
  }
  puts(outcome == PAID ? "paid" : outcome == NOT_PAID ? "not paid" : "perhaps paid");
  return outcome;
}
