// Ends the fuzzer, with both results printed, when the library and an oracle disagree.
#ifndef SORREL_FUZZ_DIFFERENCE_HPP
#define SORREL_FUZZ_DIFFERENCE_HPP

#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Prints results; of texts, what is not printable in hexadecimal.
class Printer {
public:
    void print(const std::string& text) {
        std::cerr << '"' << std::hex << std::setfill('0');
        for (const char character : text) {
            const unsigned int byte = static_cast<unsigned char>(character);
            if (byte >= 0x20 && byte < 0x7f) {
                std::cerr << character;
            } else {
                std::cerr << "\\x" << std::setw(2) << byte;
            }
        }
        std::cerr << '"' << std::dec;
    }

    void print(unsigned int number) { std::cerr << number; }
    void print(int number) { std::cerr << number; }

    template <typename First, typename Second>
    void print(const std::pair<First, Second>& both) {
        std::cerr << '(';
        print(both.first);
        std::cerr << ", ";
        print(both.second);
        std::cerr << ')';
    }

    template <typename Value>
    void print(const std::optional<Value>& value) {
        if (value) {
            print(*value);
        } else {
            std::cerr << "nothing";
        }
    }

    template <typename Value>
    void print(const std::vector<Value>& values) {
        printEach(values);
    }
    template <typename Value>
    void print(const std::set<Value>& values) {
        printEach(values);
    }
    template <typename Key, typename Value>
    void print(const std::map<Key, Value>& values) {
        printEach(values);
    }

private:
    template <typename Values>
    void printEach(const Values& values) {
        std::cerr << '{';
        for (const auto& value : values) {
            std::cerr << ' ';
            print(value);
        }
        std::cerr << " }";
    }
};

template <typename Result>
void expectSame(const char* what, const Result& library, const Result& oracle) {
    if (library == oracle) {
        return;
    }
    Printer printer;
    std::cerr << "DIFFERENCE: " << what << "\n  library: ";
    printer.print(library);
    std::cerr << "\n  oracle:  ";
    printer.print(oracle);
    std::cerr << std::endl;
    std::abort();
}

#endif // SORREL_FUZZ_DIFFERENCE_HPP
