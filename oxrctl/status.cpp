#include "oxrctl/commands.h"

namespace oxrctl {

Answer status(const StatusOptions&) {
    throw Refusal("not there yet");
}

}  // namespace oxrctl
