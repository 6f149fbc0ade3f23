// tarnwick-batch: runs tarnwick once per profile, several at a time (batch/batch_app.h).
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "batch/batch_app.h"

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(tw::WideToUtf8(argv[i]));
  return tw::batch::BatchMain(arguments);
}
#else
int main(int argc, char** argv) {
  return tw::batch::BatchMain(std::vector<std::string>(argv + 1, argv + argc));
}
#endif
