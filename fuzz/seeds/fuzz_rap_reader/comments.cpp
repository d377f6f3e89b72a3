/* block /* inner */
// line
#define LONG a \
 b
LONG "unterminated
