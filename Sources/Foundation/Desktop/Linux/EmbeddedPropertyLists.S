/* The information list and the job list as read-only sections of the
   executable, where an installer finds them without running it. "R" keeps a
   linker that drops unreferenced sections from dropping these. */
        .section __info_plist, "aR", @progbits
        .incbin KW_INFO_PLIST

        .section __launchd_plist, "aR", @progbits
        .incbin KW_LAUNCHD_PLIST

        .section .note.GNU-stack, "", @progbits
