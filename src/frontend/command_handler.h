// Whatever takes the lines of standard input once the protocol is chosen.
#pragma once

class CommandHandler {
  public:
    // One line, trailing white space already trimmed.
    virtual void handleCommand(const char* line) = 0;
    virtual ~CommandHandler() = default;
};
