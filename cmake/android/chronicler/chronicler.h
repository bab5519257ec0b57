// The closed reporter library's class. A new one is set up by its constructor; how it names what it
// keeps is not known.
#ifndef ANDROID_CHRONICLER_CHRONICLER_H_
#define ANDROID_CHRONICLER_CHRONICLER_H_

class Chronicler {
 public:
  static Chronicler* instance;
  Chronicler();
  void report(int level, const char* format, ...);

 private:
  char text_[256];
  bool flag_;
  int numbers_[2];
};

#endif  // ANDROID_CHRONICLER_CHRONICLER_H_
