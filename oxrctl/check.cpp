#include "oxrctl/commands.h"

namespace oxrctl {

Answer check(const CheckOptions&) {
    throw Refusal("not there yet");
}

}  // namespace oxrctl
