// Exit codes shared by the command-line tools, and the error a tool step
// throws to end the program with one of them and a message.
#ifndef EJ_TOOL_STATUS_H
#define EJ_TOOL_STATUS_H

#include <stdexcept>
#include <string>

namespace ejtool {

enum ExitCode : int {
    kExitOk = 0,
    kExitUsage = 2,              // bad command line
    kExitFile = 3,               // a file could not be read or written
    kExitContainerRejected = 4,  // the parser rejected the container
    kExitNvmRejected = 5,        // the NVM library rejected the NVM blob
    kExitBadDescription = 6,     // cmc-pack: the description is malformed
    kExitPicture = 7,            // cmc-inspect --png: a picture could not be written
    kExitLintFindings = 8,       // cmc-inspect --lint: drops or wrapped samples were found
};

// An error that ends the tool: the message goes to stderr, the code is the
// exit status.
class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string &message)
        : std::runtime_error(message), code_(code)
    {
    }
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

} // namespace ejtool

#endif // EJ_TOOL_STATUS_H
