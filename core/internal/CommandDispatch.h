#ifndef OSTREL_COMMAND_DISPATCH_H
#define OSTREL_COMMAND_DISPATCH_H

#include "GingaServer.h"
#include "OstrelLog.h"
#include "TCommand.h"

namespace Ostrel {

// The core's module tag in every message it logs.
const char* const kCoreModule = "GingaCommonCore";

// The messages of one command operation, each a format whose one "%s" takes
// the core's module tag.
struct CommandMessages {
  const char* createFailure;  // "%s: <op>: ERROR: Could not create command."
  const char* sendFailure;    // "%s: <op>: ERROR: Could not ..."
  const char* noAnswer;       // "%s: <op>: ERROR: No answer received." (operations that read)
};

// The one sequence by which the core builds, sends and disposes of a command:
// create, set the end point, fill, send, delete, read the answer, error codes.
// Each operation gives only its code, its setters, its messages and what it
// reads. Internal to the core.
class CommandDispatch {
 public:
  static void setErrorCode(short* errorCode, short value) {
    if (errorCode) {
      *errorCode = value;
    }
  }

  // Step 1: a new command of the class that belongs to code. A factory that
  // gives nothing, or an object of another class (which is deleted), counts as
  // no command: the creation failure is logged, -3 written and null returned.
  template <class Command>
  static Command* create(unsigned short code, const char* createFailure, short* errorCode) {
    TCommand* made = TCommand::commandFactory(code);
    Command* command = dynamic_cast<Command*>(made);
    if (!command) {
      delete made;
      ostrelLog(kCoreModule, createFailure);
      setErrorCode(errorCode, -3);
    }
    return command;
  }

  // The whole sequence for a command that is deleted after send and whose
  // answer is read by read(Command* answer), where answer is null when the
  // server gave none (or one of another class). read returns false to report
  // the missing answer (-4 and messages.noAnswer); it must write nothing then.
  template <class Command, class Fill, class Read>
  static int run(GingaServer* server, unsigned short code, const CommandMessages& messages,
                 Fill fill, Read read, short* errorCode) {
    Command* command = create<Command>(code, messages.createFailure, errorCode);
    if (!command) {
      return 0;
    }
    command->setEndPoint(endPoint(server));
    fill(command);
    TCommand* response = 0;
    int sent = command->send(&response);
    delete command;
    if (!sent) {
      ostrelLog(kCoreModule, messages.sendFailure);
      setErrorCode(errorCode, -5);
      return 0;
    }
    bool answered = read(dynamic_cast<Command*>(response));
    delete response;
    if (!answered) {
      ostrelLog(kCoreModule, messages.noAnswer);
      setErrorCode(errorCode, -4);
      return 0;
    }
    setErrorCode(errorCode, 0);
    return 1;
  }

  // Read step of commands whose answer is not read: success with or without one.
  template <class Command>
  struct IgnoreAnswer {
    bool operator()(Command*) const { return true; }
  };

  // A GingaServer is the end point of every command.
  static GingaEndPoint* endPoint(GingaServer* server) { return server; }
};

}  // namespace Ostrel

#endif  // OSTREL_COMMAND_DISPATCH_H
