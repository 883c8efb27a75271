// Another process with the device in its hands: locks the port, says so on standard output and keeps it
// until its standard input ends. Exits with 1 if somebody else holds the port.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const int port = open(argv[1], O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (port == -1 || flock(port, LOCK_EX | LOCK_NB) != 0) return 1;
  char byte = 'r';
  if (write(STDOUT_FILENO, &byte, 1) != 1) return 2;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
  }
  return 0;
}
