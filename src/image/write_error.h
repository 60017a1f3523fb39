// A file that could not be written completely (disk full, short write,
// failed close). The message is printed and the partial file removed
// before this is thrown.
#pragma once

class EFileWriteFailed {};
