// The one way a command fails: a one-line message and the process exit code.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_CLI_ERROR_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_CLI_ERROR_H_

#include <stdexcept>
#include <string>

namespace zelk_elf {
namespace cli {

// Exit codes shared by every command.
constexpr int kExitOk = 0;
// Unreadable, not ELF, malformed, or the output could not be written.
constexpr int kExitBadImage = 1;
// Unknown command or option, missing argument, bad number or data.
constexpr int kExitUsage = 2;

// Unwinds a command to main(), which prints the message on stderr.
class CliError : public std::runtime_error {
 public:
  CliError(int exit_code, const std::string& message)
      : std::runtime_error(message), exit_code_(exit_code) {}
  int exitCode() const { return exit_code_; }

 private:
  int exit_code_;
};

inline CliError usageError(const std::string& message) {
  return CliError(kExitUsage, message);
}
inline CliError imageError(const std::string& message) {
  return CliError(kExitBadImage, message);
}

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_CLI_ERROR_H_
