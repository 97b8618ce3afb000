// Token helpers that take fields out of a line of kernel text. They split the text in place like
// strtok_r: the separator is a set of characters, runs of separators count as one, leading
// separators are skipped. At most the first TOKEN_MAX tokens are kept. A token that does not
// exist reads as empty text.
#pragma once

#include <stdint.h>

#define TOKEN_MAX 50

// Splits `text` in place and stores up to `max` token pointers in `tokens`; returns their count.
int split_tokens(char* text, const char* sep, char** tokens, int max);

// The whole text when it does not contain `sep`; otherwise its second token.
char* split_stats_string(char* text, const char* sep);

// The whole text when it does not contain `sep`; otherwise its token at `index`.
char* extract_fps_info(char* text, const char* sep, int32_t index);
