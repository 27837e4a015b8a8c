#pragma once

#include <iostream>
#include <sstream>

namespace support {

// Collects what goes to standard output and to the error stream, and counts flushes, for the life of the object.
class CapturedOutput {
public:
    CapturedOutput() : cout_(std::cout.rdbuf(&out_)), cerr_(std::cerr.rdbuf(&err_)) {}
    ~CapturedOutput() {
        std::cout.rdbuf(cout_);
        std::cerr.rdbuf(cerr_);
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string out() const { return out_.str(); }
    std::string err() const { return err_.str(); }
    int flushes() const { return out_.flushes; }

private:
    struct Buffer : std::stringbuf {
        int flushes = 0;
        int sync() override {
            ++flushes;
            return std::stringbuf::sync();
        }
    };
    Buffer out_, err_;
    std::streambuf* cout_;
    std::streambuf* cerr_;
};

}  // namespace support
