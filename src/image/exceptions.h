// Exception classes of the host image code. They carry no text: the code that
// throws writes its message to standard error first, then throws.
#pragma once

class EInvalidFileFormat {};
class ETensorIncompatibleSize {};
class EFilterIncompatibleSize {};
class EFilterNotAvailable {};
class EIncompatibleMatrices {};
class ENonquadraticMatrix {};

// A file that cannot be opened. The message ("File not found: ..." or
// "Could not open ...") is printed before throwing.
class EFileNotFound {};
