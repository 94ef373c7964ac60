#include "Desktop/DesktopEntry.h"

namespace frameworks {

std::string EscapedValue(std::string_view text) {
    std::string value;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const char byte = text[position];
        switch (byte) {
            case '\\':
                value += "\\\\";
                break;
            case '\n':
                value += "\\n";
                break;
            case '\r':
                value += "\\r";
                break;
            case '\t':
                value += "\\t";
                break;
            case ' ':
                // Blanks at the beginning are cut off otherwise.
                value += position == 0 ? "\\s" : " ";
                break;
            default:
                value += byte;
        }
    }
    return value;
}

std::string QuotedArgument(std::string_view argument) {
    std::string quoted = "\"";
    for (const char byte : argument) {
        if (byte == '"' || byte == '`' || byte == '$' || byte == '\\') {
            quoted += '\\';
        } else if (byte == '%') {
            // A single one begins a field code.
            quoted += '%';
        }
        quoted += byte;
    }
    return EscapedValue(quoted + '"');
}

}  // namespace frameworks
