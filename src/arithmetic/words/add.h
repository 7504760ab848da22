// The ADD family: additions and subtractions of word arrays.
//
// Lengths n count 32-bit halves (low half first), twice the number of words;
// every kernel returns the carry or borrow out of the top as 0 or 1. Sums run
// on whole words where both halves are there; an odd n ends with one half.
// The arrays may be the same where the operation says "in place"; D may equal A or B.
#pragma once

#include "shell/types.h"

namespace kelvane::words {

u32 add_word(u32* A, u64 n, u32 x);                               // A += x, stops when the carry dies or at n
u32 sub_word(u32* A, u64 n, u32 x);                               // A -= x
u32 add_in_place(u32* A, const u32* B, u64 n);                    // A += B
u32 sub_in_place(u32* A, const u32* B, u64 n);                    // A -= B
u32 add(u32* D, const u32* A, const u32* B, u64 n);               // D = A + B
u32 sub(u32* D, const u32* A, const u32* B, u64 n);               // D = A - B
u32 add_carry(u32* D, const u32* A, const u32* B, u64 n, u32 c);  // D = A + B + c
u32 sub_borrow(u32* D, const u32* A, const u32* B, u64 n, u32 c); // D = A - B - c
void add_propagate(u32* A, const u32* B, u64 n); // A += B, then the carry runs on; a guard above A stops it
void sub_propagate(u32* A, const u32* B, u64 n); // A -= B, likewise

// The same on whole 64-bit words (n counts words), as the rest of the program uses them.
u64 add_in_place(u64* A, const u64* B, u64 n);
u64 sub_in_place(u64* A, const u64* B, u64 n);
u64 add(u64* D, const u64* A, const u64* B, u64 n);
u64 sub(u64* D, const u64* A, const u64* B, u64 n);
u64 add_carry(u64* D, const u64* A, const u64* B, u64 n, u64 c);
u64 sub_borrow(u64* D, const u64* A, const u64* B, u64 n, u64 c);
u64 add_word(u64* A, u64 n, u64 x);
u64 sub_word(u64* A, u64 n, u64 x);
void add_propagate(u64* A, const u64* B, u64 n);
void sub_propagate(u64* A, const u64* B, u64 n);

// D = A * x + c over n words, returns the carry word. D may equal A.
u64 mul_word(u64* D, const u64* A, u64 n, u64 x, u64 c = 0);
// D += A * x over n words, returns the carry word.
u64 mul_word_add(u64* D, const u64* A, u64 n, u64 x);
// A = A * radix, returns the word carried out on top: one step of a radix conversion.
inline u64 mul_word_in_place(u64* A, u64 n, u64 x) {
  return mul_word(A, A, n, x, 0);
}
// Shifts by s bits, 0 < s < 64: left returns the bits shifted out on top, right those below.
u64 shift_left(u64* D, const u64* A, u64 n, unsigned s);
u64 shift_right(u64* D, const u64* A, u64 n, unsigned s);
// D = ~A over n words.
void complement(u64* D, const u64* A, u64 n);
// Compares two n-word numbers: negative, zero or positive as A < B, A = B, A > B.
int compare(const u64* A, const u64* B, u64 n);
// n without the zero words at the top.
u64 normalized_length(const u64* A, u64 n);

} // namespace kelvane::words
