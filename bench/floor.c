// The least that any program must do for one fax job: the same system calls as the host build, made
// by hand, with no error handling, no JSON library and no text conversion. A whole run of the tool
// is measured against a whole run of this.
//
// Usage: floor JOBFILE PORT           the add-in route, the log off; ZENTPOST_REGISTRY names the
//                                     registry file
//        floor --attach SOURCE TARGET the Extended MAPI route: SOURCE is read whole, written to
//                                     TARGET and deleted
#include <arpa/inet.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static char* ReadAll(const char* path, size_t* size) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  fstat(file, &status);
  *size = (size_t)status.st_size;
  char* text = malloc(*size + 1);
  const ssize_t count = read(file, text, *size);
  close(file);
  text[count < 0 ? 0 : count] = '\0';
  return text;
}

// The registry file is read afresh for every key, as the host back-end does.
static int FindInRegistry(const char* section, const char* name) {
  size_t size = 0;
  char* text = ReadAll(getenv("ZENTPOST_REGISTRY"), &size);
  const char* at = strstr(text, section);
  const int found = at != NULL && strstr(at, name) != NULL;
  free(text);
  return found;
}

// One log line with the log off: both hives are asked for "LogLevel", and the time is taken.
static void LogLine(void) {
  FindInRegistry("[HKEY_CURRENT_USER\\Software\\Sollvex\\FaxClient]", "\"LogLevel\"");
  FindInRegistry("[HKEY_LOCAL_MACHINE\\Software\\Sollvex\\FaxClient]", "\"LogLevel\"");
  const time_t now = time(NULL);
  struct tm local;
  localtime_r(&now, &local);
}

static int ConnectTo(int port) {
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons((unsigned short)port)};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int peer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(peer, (const struct sockaddr*)&address, sizeof(address)) != 0) {
    perror("connect");
    exit(1);
  }
  return peer;
}

static void* Watchdog(void* parameter) {
  atomic_int* sending = parameter;
  const struct timespec millisecond = {0, 1000000};
  do {
    nanosleep(&millisecond, NULL);
  } while (atomic_load_explicit(sending, memory_order_relaxed) != 0);
  return NULL;
}

// Copies the string behind "key": into out.
static void Field(const char* text, const char* key, char* out, size_t capacity) {
  const char* at = strstr(text, key);
  at = at == NULL ? NULL : strchr(at + strlen(key), ':');
  at = at == NULL ? NULL : strchr(at, '"');
  size_t length = at == NULL ? 0 : strcspn(at + 1, "\"");
  length = length < capacity ? length : capacity - 1;
  if (at != NULL) {
    memcpy(out, at + 1, length);
  }
  out[length] = '\0';
}

static int Attach(const char* source, const char* target) {
  const int in = open(source, O_RDONLY | O_CLOEXEC);
  struct stat status;
  fstat(in, &status);
  const size_t size = (size_t)status.st_size;
  char* bytes = malloc(size);
  size_t done = 0;
  for (ssize_t count = 1; done < size && count > 0; done += (size_t)count) {
    count = read(in, bytes + done, size - done);
  }
  close(in);
  const int out = open(target, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  done = 0;
  for (ssize_t count = 1; done < size && count > 0; done += (size_t)count) {
    count = write(out, bytes + done, size - done);
  }
  close(out);
  unlink(source);
  return done == size ? 0 : 1;
}

int main(int argc, char** argv) {
  if (argc == 4 && strcmp(argv[1], "--attach") == 0) {
    return Attach(argv[2], argv[3]);
  }
  if (argc != 3) {
    return 2;
  }
  size_t size = 0;
  char* job = ReadAll(argv[1], &size);
  LogLine();

  const int port = atoi(argv[2]);
  FindInRegistry("[HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin]", "\"TolvanAddinPort\"");
  close(ConnectTo(port));

  LogLine();
  char file[1024];
  char name[1024];
  char receiver[1024];
  Field(job, "\"FilePath\"", file, sizeof(file));
  Field(job, "\"SourceFileName\"", name, sizeof(name));
  Field(job, "\"Receiver\"", receiver, sizeof(receiver));
  char payload[8192];
  const int length = snprintf(payload, sizeof(payload),
                              "{\n\t\"Parameters\":\t{\n\t\t\"Receiver\":\t\"%s\",\n"
                              "\t\t\"FileName\":\t\"%s\",\n\t\t\"AttachmentName\":\t\"%s\"\n\t}\n}",
                              receiver, file, name);
  LogLine();
  FindInRegistry("[HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin]", "\"TolvanAddinPort\"");
  const int peer = ConnectTo(port);
  atomic_int sending = 1;
  pthread_t watchdog;
  pthread_create(&watchdog, NULL, Watchdog, &sending);
  const ssize_t sent = send(peer, payload, (size_t)length, MSG_NOSIGNAL);
  atomic_store_explicit(&sending, 0, memory_order_relaxed);
  pthread_join(watchdog, NULL);
  LogLine();

  free(ReadAll(argv[1], &size));
  const int out = open(argv[1], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  const ssize_t written = write(out, job, size);
  close(out);
  close(peer);
  free(job);
  return sent == length && written == (ssize_t)size ? 0 : 1;
}
