/* Makes the file-system calls of store_product_flags for a settings string, in the same order and
 * through the same stdio calls, and does nothing else. The string must be well-formed, sorted and
 * free of escapes: it is not checked. */
#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static const char* const directory = "/etc/tarnwick/Quorvex/flags";
static const char* const levels[] = {"/etc/tarnwick/", "/etc/tarnwick/Quorvex",
                                     "/etc/tarnwick/Quorvex/flags"};

static void read_file(const char* path) {
  char block[65536];
  FILE* file = fopen(path, "rb");
  if (file == NULL) return;
  while (fread(block, 1, sizeof block, file) > 0) continue;
  fclose(file);
}

static void read_stored_values(void) {
  DIR* dir = opendir(directory);
  if (dir == NULL) return;
  for (struct dirent* entry; (entry = readdir(dir)) != NULL;) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    char path[512];
    snprintf(path, sizeof path, "%s/%s", directory, entry->d_name);
    struct stat info;
    if (stat(path, &info) != 0) break;
    if (!S_ISDIR(info.st_mode)) read_file(path);
  }
  closedir(dir);
}

static void make_levels(void) {
  for (size_t i = 0; i < sizeof levels / sizeof *levels; ++i) {
    struct stat info;
    if (stat(levels[i], &info) == 0) {
      /* The second look asks whether it is a regular file. */
      if (stat(levels[i], &info) == 0 && S_ISREG(info.st_mode)) unlink(levels[i]);
    }
    mkdir(levels[i], 0755);
  }
}

static void store(const char* key, size_t key_size, const char* code) {
  char path[512];
  snprintf(path, sizeof path, "%s/%.*s", directory, (int)key_size, key);
  make_levels();
  unlink(path);
  if (code[0] == 'D') return;

  const char* value = code[1] == 'T' ? "true" : "false";
  FILE* file = fopen(path, "wb");
  if (file == NULL) return;
  fwrite(value, 1, strlen(value), file);
  fclose(file);
}

int main(int argc, char** argv) {
  if (argc < 2) return 1;
  tzset();
  read_stored_values();
  for (const char* pair = argv[1]; *pair != 0;) {
    const char* code = strchr(pair, '=') + 1;
    store(pair, (size_t)(code - 1 - pair), code);
    pair = code[2] == '&' ? code + 3 : code + 2;
  }
  return 0;
}
