// A host that has both outputs in a log of its own: the system's, with a copy on standard error.
#include <syslog.h>
#include <taskwarden/taskwarden.h>

// A text may be a line, a part of one, or a line feed alone.
static void log_text(void* context, int output, const char* tag, const char* text, size_t length) {
  (void)context;
  const int priority = output == TASKWARDEN_OUTPUT_LOG ? LOG_ERR : LOG_INFO;
  if (length > 0 && text[length - 1] == '\n') {
    --length;
  }
  if (length > 0) {
    syslog(priority, "%s%s%.*s", tag != NULL ? tag : "", tag != NULL ? ": " : "", (int)length,
           text);
  }
}

int main(void) {
  openlog("redirect", LOG_PID | LOG_PERROR, LOG_DAEMON);
  taskwarden_set_output(log_text, NULL);
  taskwarden_start();
  return 1;
}
