#pragma once

#include <velacamplix/statevector.hpp>

#include <iostream>
#include <sstream>

namespace velacamplix::object {

// "(re,im)" with the stream's own number format; parts of single precision are widened, which prints the same text.
template <class T>
void write_pair(std::ostream& stream, const thrust::complex<T>& a) {
    stream << "(" << static_cast<double>(a.real()) << "," << static_cast<double>(a.imag()) << ")";
}

}  // namespace velacamplix::object

namespace pbamplix::cpu {

template <class T>
void PybindAmplixStateVectorCPU<T>::print() {
    for (unsigned long i = 0; i < size; ++i) {
        std::cout << i << ": ";
        velacamplix::object::write_pair(std::cout, amplitudes[i]);
        std::cout << std::endl;
    }
}

template <class T>
std::string PybindAmplixStateVectorCPU<T>::str() {
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // a stream keeps it to itself when memory runs out, and the text ends there
    for (unsigned long i = 0; i < size; ++i) {
        velacamplix::object::write_pair(text, amplitudes[i]);
        text << " ";
    }
    return text.str();
}

}  // namespace pbamplix::cpu
