#include "report/reporter.h"

Chronicler& tw_reporter() {
  // The guarded initialisation of the local static is what makes two threads safe here.
  static Chronicler& reporter = *[] {
    if (Chronicler::instance == nullptr) {
      Chronicler::instance = new Chronicler();
    }
    return Chronicler::instance;
  }();
  return reporter;
}
