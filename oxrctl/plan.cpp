#include "oxrctl/commands.h"

namespace oxrctl {

Answer plan(const PlanOptions&) {
    throw Refusal("not there yet");
}

}  // namespace oxrctl
