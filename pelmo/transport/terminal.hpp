#pragma once

// What a front end needs to know about the terminal behind a standard stream, to choose between
// redrawn progress bars and plain lines. Standard streams by number: 0 input, 1 output, 2 error.
namespace pelmo::port {

// True when the stream is a terminal (a console on Windows), not a pipe or a file.
bool stream_is_terminal(int stream_number);

// The terminal's width in columns; 0 when the stream is no terminal or its size is unknown.
int terminal_columns(int stream_number);

// Makes the terminal take the cursor-movement and line-erase sequences of VT100 terminals (on
// Windows a console needs virtual terminal processing turned on); false when it cannot.
bool enable_terminal_sequences(int stream_number);

}  // namespace pelmo::port
