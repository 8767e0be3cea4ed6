// The face that the machine writes in, from embedded_font to embedded_font_end: inside the library,
// so that pictures come out alike wherever the program runs, fonts installed or not.
    .section .rodata
    .global embedded_font
    .global embedded_font_end
    .balign 16
embedded_font:
    .incbin FONT_FILE
embedded_font_end:
    .section .note.GNU-stack,"",@progbits
