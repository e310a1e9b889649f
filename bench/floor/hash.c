// hash THREADS DIR: one SHA-256 for each folder in DIR, over the paths and contents of its files in byte order.
// The least that any program with the same answer must do: each file is opened once and read with plain reads, folders
// are handed out to threads one at a time, nothing is checked, nothing is freed.

#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <openssl/evp.h>

typedef struct {
  char** items;
  size_t count;
} List;

static int root;
static List folders;
static unsigned char (*digests)[EVP_MAX_MD_SIZE];
static EVP_MD* sha256;
static atomic_size_t next;

static void append(List* list, char* item) {
  if ((list->count & (list->count - 1)) == 0) {
    list->items = realloc(list->items, (list->count == 0 ? 1 : 2 * list->count) * sizeof(char*));
  }
  list->items[list->count++] = item;
}

static int inByteOrder(const void* a, const void* b) { return strcmp(*(char* const*)a, *(char* const*)b); }

static void sort(List* list) { qsort(list->items, list->count, sizeof(char*), inByteOrder); }

// Appends the files below an open folder, whose path ends in a slash unless it is empty.
static void listFiles(int folder, const char* path, List* files) {
  DIR* stream = fdopendir(folder);
  for (struct dirent* entry; (entry = readdir(stream)) != NULL;) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    char* found = NULL;
    if (asprintf(&found, "%s%s%s", path, entry->d_name, entry->d_type == DT_DIR ? "/" : "") < 0) abort();
    if (entry->d_type == DT_REG) append(files, found);
    if (entry->d_type == DT_DIR) listFiles(openat(folder, entry->d_name, O_RDONLY | O_DIRECTORY), found, files);
  }
  closedir(stream);
}

static void hashFolder(size_t index, EVP_MD_CTX* digest, unsigned char* buffer, size_t size) {
  List files = {0};
  const int folder = openat(root, folders.items[index], O_RDONLY | O_DIRECTORY);
  listFiles(dup(folder), "", &files);
  sort(&files);
  EVP_DigestInit_ex2(digest, sha256, NULL);
  for (size_t i = 0; i < files.count; ++i) {
    EVP_DigestUpdate(digest, files.items[i], strlen(files.items[i]) + 1);
    const int file = openat(folder, files.items[i], O_RDONLY);
    for (ssize_t got; (got = read(file, buffer, size)) > 0;) EVP_DigestUpdate(digest, buffer, (size_t)got);
    close(file);
  }
  EVP_DigestFinal_ex(digest, digests[index], NULL);
  close(folder);
}

static void* hashFolders(void* unused) {
  const size_t size = 256 * 1024;
  unsigned char* buffer = malloc(size);
  EVP_MD_CTX* digest = EVP_MD_CTX_new();
  for (size_t i; (i = atomic_fetch_add(&next, 1)) < folders.count;) hashFolder(i, digest, buffer, size);
  return unused;
}

int main(int argc, char** argv) {
  const int threads = argc == 3 ? atoi(argv[1]) : 0;
  DIR* stream = argc == 3 ? opendir(argv[2]) : NULL;
  if (stream == NULL || threads < 1) {
    fprintf(stderr, "usage: hash THREADS DIR\n");
    return 2;
  }
  root = dirfd(stream);
  for (struct dirent* entry; (entry = readdir(stream)) != NULL;) {
    if (entry->d_type == DT_DIR && entry->d_name[0] != '.') append(&folders, strdup(entry->d_name));
  }
  sort(&folders);
  digests = calloc(folders.count + 1, sizeof *digests);
  sha256 = EVP_MD_fetch(NULL, "SHA256", NULL);

  pthread_t helpers[threads];
  for (int i = 1; i < threads; ++i) pthread_create(&helpers[i], NULL, hashFolders, NULL);
  hashFolders(NULL);
  for (int i = 1; i < threads; ++i) pthread_join(helpers[i], NULL);

  for (size_t i = 0; i < folders.count; ++i) {
    for (size_t k = 0; k < 32; ++k) printf("%02x", digests[i][k]);
    printf("  %s\n", folders.items[i]);
  }
  return 0;
}
