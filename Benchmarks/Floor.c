/* The least that a call can cost: the same exchange with fixed bytes, nothing decoded or decided.
 *
 *   floor list SOCKET       sends a request, reads one line, writes a fixed text
 *   floor subscribe SOCKET  sends a request, writes what each read brought
 *   floor notify SOCKET     reads standard input whole, sends a fixed line, reads one line
 */
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static char buffer[4096];

static void readInput(void) {
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

static void say(int descriptor, const char* text) {
  if (write(descriptor, text, strlen(text)) < 0) _exit(1);
}

int main(int count, char** words) {
  struct sockaddr_un address = {0};
  ssize_t size;
  int connection;
  char what;
  if (count != 3) return 2;
  what = words[1][0];
  if (what == 'n') readInput();
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, words[2], sizeof address.sun_path - 1);
  connection = socket(AF_UNIX, SOCK_STREAM, 0);
  if (connect(connection, (struct sockaddr*)&address, sizeof address) != 0) {
    say(2, "Corvane isn't running, or is too old for corvanectl.\n");
    _exit(3);
  }
  say(connection, what == 'n' ? "{\"agent\":\"claude\",\"command\":\"notify\"}\n"
                              : "{\"command\":\"list\"}\n");
  if (what == 's') {
    while ((size = read(connection, buffer, sizeof buffer)) > 0) {
      if (write(1, buffer, (size_t)size) < 0) _exit(1);
    }
    _exit(3);
  }
  do {
    size = read(connection, buffer, sizeof buffer);
  } while (size > 0 && !memchr(buffer, '\n', (size_t)size));
  if (what == 'l') say(1, "* Mail         2 windows  1\n  Code Review  1 window\n");
  _exit(0);
}
