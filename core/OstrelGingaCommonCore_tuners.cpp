// The tuner list. Unlike the other commands it is judged by the answer object
// alone: a server may report failure and still answer, or succeed silently.
#include <stdlib.h>

#include "CommandDispatch.h"
#include "OstrelGingaCommonCore.h"
#include "TGetTunerListCommand.h"
#include "TGetTunerListResponse.h"

namespace Ostrel {

namespace {

const char* const kInvalidParameter = "%s: getTunerList: ERROR: Invalid Parameter.";
const char* const kCreateFailure = "%s: getTunerList: ERROR: Could not create command.";
const char* const kNoAnswer = "%s: getTunerList: ERROR: No answer received.";
const char* const kNoMemory = "%s: getTunerList: ERROR: Could not allocate memory.";

// Tuners are addressed by an 8-bit index: no more than this can be copied.
const unsigned int kMaxAddressableTuners = 256;

// The server's answer to a tuner-list command, or null when it gave none or
// one of another class (which is deleted). The command is deleted here.
TGetTunerListResponse* askServer(GingaServer* server, short* errorCode) {
  TGetTunerListCommand* command = CommandDispatch::create<TGetTunerListCommand>(
      TGetTunerListCommand::kCode, kCreateFailure, errorCode);
  if (!command) {
    return 0;
  }
  command->setEndPoint(CommandDispatch::endPoint(server));
  TCommand* response = 0;
  command->send(&response);  // the answer decides, not the result
  delete command;
  TGetTunerListResponse* list = dynamic_cast<TGetTunerListResponse*>(response);
  if (!list) {
    delete response;
    ostrelLog(kCoreModule, kNoAnswer);
    CommandDispatch::setErrorCode(errorCode, -4);
  }
  return list;
}

// malloc that tells a failure from the null some C libraries give for 0 bytes.
bool allocate(size_t size, void** memory) {
  *memory = malloc(size);
  return *memory || size == 0;
}

// Copies the first count tuners of list into two new arrays, in index order.
// false, with nothing allocated, when memory runs out.
bool copyTuners(const TGetTunerListResponse& list, unsigned int count, int** ids,
                unsigned char** types) {
  void* idMemory = 0;
  void* typeMemory = 0;
  if (!allocate(count * sizeof(int), &idMemory) || !allocate(count, &typeMemory)) {
    free(idMemory);
    return false;
  }
  int* idArray = static_cast<int*>(idMemory);
  unsigned char* typeArray = static_cast<unsigned char*>(typeMemory);
  for (unsigned int i = 0; i < count; ++i) {
    const unsigned char index = static_cast<unsigned char>(i);
    int id = 0;
    unsigned char type = 0;
    list.getTunerId(index, &id);
    list.getTunerType(index, &type);
    idArray[i] = id;
    typeArray[i] = type;
  }
  *ids = idArray;
  *types = typeArray;
  return true;
}

}  // namespace

int OstrelGingaCommonCore::getTunerList(int** ids, unsigned char** types, short* errorCode) {
  if (!ids || !types) {
    ostrelLog(kCoreModule, kInvalidParameter);
    CommandDispatch::setErrorCode(errorCode, -1);
    return 0;
  }
  TGetTunerListResponse* list = askServer(getServer(), errorCode);
  if (!list) {
    return 0;
  }
  unsigned int count = list->getTunerCounter();
  if (count > kMaxAddressableTuners) {
    count = kMaxAddressableTuners;
  }
  const bool copied = copyTuners(*list, count, ids, types);
  delete list;
  if (!copied) {
    ostrelLog(kCoreModule, kNoMemory);
    CommandDispatch::setErrorCode(errorCode, -4);
    return 0;
  }
  CommandDispatch::setErrorCode(errorCode, 0);
  return static_cast<int>(count);
}

}  // namespace Ostrel
