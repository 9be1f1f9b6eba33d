#pragma once

namespace ecu::tamu {

/// Opens /dev/null as each of standard input, output and error that the process was started without. A socket
/// or a file that is opened later would otherwise get its number, and what is written to the stream. Reading
/// from such an input and writing to such an output fails, as with a closed one. Call first.
void open_standard_streams() noexcept;

}  // namespace ecu::tamu
