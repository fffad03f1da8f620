#include "oxrctl/commands.h"

namespace oxrctl {

Answer explain(const ExplainOptions&) {
    throw Refusal("not there yet");
}

}  // namespace oxrctl
