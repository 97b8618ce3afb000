#define TARN_LOG_TAG TAG_POWER

#include "tokens.h"

#include <string.h>

#include "tarn_log.h"

static char g_empty_token[1] = "";

int split_tokens(char* text, const char* sep, char** tokens, int max) {
    int n = 0;
    char* save = nullptr;
    for (char* tok = strtok_r(text, sep, &save); tok != nullptr && n < max;
         tok = strtok_r(nullptr, sep, &save)) {
        tokens[n++] = tok;
    }
    return n;
}

char* split_stats_string(char* text, const char* sep) {
    if (strstr(text, sep) == nullptr) return text;
    char* tokens[TOKEN_MAX];
    int n = split_tokens(text, sep, tokens, TOKEN_MAX);
    return n > 1 ? tokens[1] : g_empty_token;
}

char* extract_fps_info(char* text, const char* sep, int32_t index) {
    if (strstr(text, sep) == nullptr) return text;
    char* tokens[TOKEN_MAX];
    int n = split_tokens(text, sep, tokens, TOKEN_MAX);
    TLOGD("extract_fps_info split 1:%s, 2:%s, 3:%s", n > 0 ? tokens[0] : "", n > 1 ? tokens[1] : "",
          n > 2 ? tokens[2] : "");
    return (index >= 0 && index < n) ? tokens[index] : g_empty_token;
}
