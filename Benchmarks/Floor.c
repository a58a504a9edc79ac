/* The least that a call can cost: the same exchange with fixed bytes, nothing decoded or decided.
 *
 *   floor list SOCKET       sends a request, writes the line that comes back
 *   floor subscribe SOCKET  sends a request, writes what each read brought
 *   floor notify SOCKET     reads standard input and drops it, sends a fixed line, reads one line
 *   floor keep SOCKET       the same, but keeps its standard input in memory until the end
 */
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static char buffer[65536];

static void dropInput(void) {
  while (read(0, buffer, sizeof buffer) > 0) {
  }
}

static void keepInput(void) {
  struct stat status;
  size_t capacity = 8192;
  size_t size = 0;
  char* input;
  ssize_t count;
  if (fstat(0, &status) == 0 && S_ISREG(status.st_mode)) capacity = (size_t)status.st_size + 1;
  input = malloc(capacity);
  while (input && (count = read(0, input + size, capacity - size)) > 0) {
    size += (size_t)count;
    if (size == capacity) input = realloc(input, capacity *= 2);
  }
}

static void say(int descriptor, const char* text, size_t size) {
  if (write(descriptor, text, size) != (ssize_t)size) _exit(1);
}

int main(int count, char** words) {
  static const char list[] = "{\"command\":\"list\"}\n";
  static const char notify[] = "{\"agent\":\"claude\",\"command\":\"notify\",\"kind\":\"done\"}\n";
  struct sockaddr_un address = {0};
  ssize_t size;
  int connection;
  int notifies;
  char what;
  if (count != 3) return 2;
  what = words[1][0];
  notifies = what == 'n' || what == 'k';
  if (what == 'n') dropInput();
  if (what == 'k') keepInput();
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, words[2], sizeof address.sun_path - 1);
  connection = socket(AF_UNIX, SOCK_STREAM, 0);
  if (connect(connection, (struct sockaddr*)&address, sizeof address) != 0) _exit(notifies ? 0 : 3);
  if (notifies) {
    say(connection, notify, sizeof notify - 1);
  } else {
    say(connection, list, sizeof list - 1);
  }
  while ((size = read(connection, buffer, sizeof buffer)) > 0) {
    if (!notifies) say(1, buffer, (size_t)size);
    if (what != 's' && buffer[size - 1] == '\n') _exit(0);
  }
  _exit(what == 's' ? 3 : 1); /* the application left */
}
