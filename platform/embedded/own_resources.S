// The compiled resources of KSFAXUI.DLL as the machine loads them: the bytes of the .res file
// between ksfaxui_resources and ksfaxui_resources_end.
    .section .rodata
    .global ksfaxui_resources
    .global ksfaxui_resources_end
    .balign 4
ksfaxui_resources:
    .incbin RESOURCE_FILE
ksfaxui_resources_end:
    .section .note.GNU-stack,"",@progbits
