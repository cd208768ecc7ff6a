// Text that is formatted a second time: makes it harmless, whatever directives it holds.
#include "core/second_pass.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

// Of a width or precision; larger ones are taken for this one. A message is filled with blanks then, whatever follows.
constexpr int kMaxNumber = 4095;

// Conversions that take an argument. %b and %B are unknown to older C libraries, which print them as they stand.
constexpr char kConversions[] = "diouxXbBcCsSpaAeEfFgGn";

// One directive, as far as it matters here. `end` is behind its conversion, or behind the text when that is missing.
struct Directive {
    char flags[8] = "";
    int width = 0;
    int precision = -1;
    bool takesNumber = false; // a width or precision given by '*'
    bool hasPosition = false;
    char conversion = '\0';
    const char* end = nullptr;
};

// What is written so far; what does not fit is dropped.
class Output {
public:
    explicit Output(char (&buffer)[sorrel::kSecondPassSize]) : m_next(buffer), m_last(buffer + sizeof buffer - 1) {}

    void append(const char* text, std::size_t length) {
        length = std::min(length, static_cast<std::size_t>(m_last - m_next));
        std::memcpy(m_next, text, length);
        m_next += length;
    }

    void finish() { *m_next = '\0'; }

private:
    char* m_next;
    char* const m_last;
};

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

bool isOneOf(char character, const char* characters) {
    return character != '\0' && std::strchr(characters, character) != nullptr;
}

// Each flag counts once.
const char* readFlags(const char* text, Directive& directive) {
    std::size_t count = 0;
    for (; isOneOf(*text, "-+ #0'I"); ++text) {
        if (std::strchr(directive.flags, *text) == nullptr) {
            directive.flags[count++] = *text;
        }
    }
    return text;
}

const char* readNumber(const char* text, int& number) {
    for (number = 0; isDigit(*text); ++text) {
        number = std::min(number * 10 + (*text - '0'), kMaxNumber);
    }
    return text;
}

// Digits, or '*', which may have a position of its own.
const char* readWidth(const char* text, Directive& directive, int& width) {
    if (*text != '*') {
        return readNumber(text, width);
    }
    directive.takesNumber = true;
    width = 0;
    int position = 0;
    text = readNumber(text + 1, position);
    if (*text == '$') {
        directive.hasPosition = true;
        ++text;
    }
    return text;
}

// One, of which two are doubled; what follows is the conversion, whatever it is.
const char* skipLengthModifier(const char* text) {
    if (!isOneOf(*text, "hlqLjzZt")) {
        return text;
    }
    const bool doubled = isOneOf(*text, "hl") && text[1] == text[0];
    return text + (doubled ? 2 : 1);
}

// `text` is behind the percent sign.
Directive readDirective(const char* text) {
    Directive directive;
    int position = 0;
    const char* const behindPosition = readNumber(text, position);
    if (behindPosition != text && *behindPosition == '$') {
        directive.hasPosition = true;
        text = behindPosition + 1;
    }
    text = readFlags(text, directive);
    text = readWidth(text, directive, directive.width);
    if (*text == '.') {
        text = readWidth(text + 1, directive, directive.precision);
    }
    text = skipLengthModifier(text);
    directive.conversion = *text;
    directive.end = *text == '\0' ? text : text + 1;
    return directive;
}

// The directive written anew. The length modifiers are left out: they change nothing where the argument is nothing.
template <std::size_t size>
void write(const Directive& directive, char (&format)[size]) {
    char precision[16] = "";
    if (directive.precision >= 0) {
        snprintf(precision, sizeof precision, ".%d", directive.precision);
    }
    char width[16] = "";
    if (directive.width > 0) {
        snprintf(width, sizeof width, "%d", directive.width);
    }
    snprintf(format, size, "%%%s%s%s%c", directive.flags, width, precision, directive.conversion);
}

// What the directive makes of nothing.
void render(Directive directive, Output& output) {
    if (directive.conversion == 'S') {
        directive.conversion = 's';
    }
    char format[48];
    write(directive, format);
    char text[2048];
    int length = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (directive.conversion == 's') {
        length = snprintf(text, sizeof text, format, "");
    } else if (directive.conversion == 'p') {
        length = snprintf(text, sizeof text, format, static_cast<void*>(nullptr));
    } else if (isOneOf(directive.conversion, "aAeEfFgG")) {
        length = snprintf(text, sizeof text, format, 0.0);
    } else {
        length = snprintf(text, sizeof text, format, 0);
    }
#pragma GCC diagnostic pop
    output.append(text, static_cast<std::size_t>(std::clamp(length, 0, static_cast<int>(sizeof text) - 1)));
}

// A character of value 0 would end the text: of %c only the blanks around it are left.
void renderCharacter(Directive directive, Output& output) {
    directive.conversion = 's';
    directive.precision = -1;
    directive.width = std::max(directive.width - 1, 0);
    render(directive, output);
}

// %m with a width that the C library can fill with blanks in no time.
void narrow(const Directive& directive, Output& output) {
    char format[48];
    write(directive, format);
    output.append(format, std::strlen(format));
}

// Doubles the percent signs: the first character, and perhaps the conversion.
void escape(const char* start, const Directive& directive, Output& output) {
    output.append("%", 1);
    output.append(start, static_cast<std::size_t>(directive.end - start));
    if (directive.conversion == '%') {
        output.append("%", 1);
    }
}

// Newer C libraries know the length modifiers w8 and wf8, and so on; for others 'w' is an unknown conversion.
bool isBestEscaped(const Directive& directive) {
    return directive.hasPosition || directive.conversion == 'w' ||
           (directive.takesNumber && !isOneOf(directive.conversion, kConversions));
}

void replace(const char* start, const Directive& directive, Output& output) {
    if (isBestEscaped(directive)) {
        escape(start, directive, output);
    } else if (isOneOf(directive.conversion, "cC")) {
        renderCharacter(directive, output);
    } else if (directive.conversion == 'm' && directive.width == kMaxNumber) {
        narrow(directive, output);
    } else if (!isOneOf(directive.conversion, kConversions)) {
        output.append(start, static_cast<std::size_t>(directive.end - start));
    } else if (directive.conversion != 'n') {
        render(directive, output);
    }
}

} // namespace

void sorrel::makeArgumentless(const char* text, char (&out)[kSecondPassSize]) {
    Output output(out);
    while (const char* const start = std::strchr(text, '%')) {
        output.append(text, static_cast<std::size_t>(start - text));
        const Directive directive = readDirective(start + 1);
        replace(start, directive, output);
        text = directive.end;
    }
    output.append(text, std::strlen(text));
    output.finish();
}
