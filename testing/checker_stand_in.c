/* A stand-in for the system's file-system checker, for the tests of the
 * file-system check on a real Win32: writes what a checker writes and ends
 * with the status it is told to. Its whole behaviour comes from the
 * environment the parent passes down:
 *   CHECKER_STAND_IN_OUTPUT  the text to write; \r, \n and \\ are escapes
 *   CHECKER_STAND_IN_EXIT    the exit status (decimal), 0 when absent
 *   CHECKER_STAND_IN_ARGS    a file that receives the command line's arguments
 *   CHECKER_STAND_IN_LINGER_MS  how long to stay alive after writing
 * Written in C and built only for Windows, so that the host build's globs of
 * C++ sources leave it alone. */
#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
  const char* argsFile = getenv("CHECKER_STAND_IN_ARGS");
  const char* output = getenv("CHECKER_STAND_IN_OUTPUT");
  const char* exitText = getenv("CHECKER_STAND_IN_EXIT");
  const char* linger = getenv("CHECKER_STAND_IN_LINGER_MS");
  if (argsFile != NULL) {
    FILE* file = fopen(argsFile, "wb");
    if (file != NULL) {
      for (int i = 1; i < argc; ++i) fprintf(file, "%s%s", i > 1 ? " " : "", argv[i]);
      fclose(file);
    }
  }
  if (output != NULL) {
    /* Binary: the line ends go out exactly as given. */
    _setmode(_fileno(stdout), _O_BINARY);
    for (const char* c = output; *c != '\0'; ++c) {
      char byte = *c;
      if (byte == '\\' && c[1] != '\0') {
        ++c;
        byte = *c == 'r' ? '\r' : *c == 'n' ? '\n' : *c;
      }
      fputc(byte, stdout);
    }
    fflush(stdout);
  }
  if (linger != NULL) Sleep((DWORD)atoi(linger));
  return exitText != NULL ? atoi(exitText) : 0;
}
