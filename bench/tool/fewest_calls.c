/* Brings the store to the same state as store_product_flags with the fewest file-system calls:
 * nothing is looked at, the directories are made once, a flag costs one removal or one write. The
 * string must be well-formed and free of escapes: it is not checked. */
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static void store(const char* key, size_t key_size, const char* code) {
  char path[512];
  snprintf(path, sizeof path, "/etc/tarnwick/Quorvex/flags/%.*s", (int)key_size, key);
  if (code[0] == 'D') {
    unlink(path);
    return;
  }
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (file < 0) return;
  const char* value = code[1] == 'T' ? "true" : "false";
  if (write(file, value, strlen(value)) < 0) perror(path);
  close(file);
}

int main(int argc, char** argv) {
  if (argc < 2) return 1;
  if (argv[1][0] == 0) return 0;
  mkdir("/etc/tarnwick/", 0755);
  mkdir("/etc/tarnwick/Quorvex", 0755);
  mkdir("/etc/tarnwick/Quorvex/flags", 0755);
  for (const char* pair = argv[1]; *pair != 0;) {
    const char* code = strchr(pair, '=') + 1;
    store(pair, (size_t)(code - 1 - pair), code);
    pair = code[2] == '&' ? code + 3 : code + 2;
  }
  return 0;
}
