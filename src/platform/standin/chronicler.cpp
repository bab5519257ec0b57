#include <chronicler/chronicler.h>

#include <stdarg.h>

#include "platform/format.h"
#include "platform/output.h"

Chronicler* Chronicler::instance = nullptr;

void Chronicler::report(int /*level*/, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const FormattedText formatted(format, args);
  va_end(args);
  tw_output_report(formatted.view());
}
