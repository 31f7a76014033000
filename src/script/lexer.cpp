// The script lexer.
#include "script/lexer.h"

namespace tarn {

ScriptLocation script_location;
ScriptToken token;

void script_reset() {
    script_location = ScriptLocation{};
    token = ScriptToken{};
}

} // namespace tarn
