// The information list and the job list as sections of the executable, where
// the platform's installer and launchd read them. This linker ignores
// -sectcreate, so they come in as assembly; it needs a label in a section that
// it is to keep.
        .section __TEXT,__info_plist,regular,no_dead_strip
        .globl _kw_info_plist
        .no_dead_strip _kw_info_plist
_kw_info_plist:
        .incbin KW_INFO_PLIST

        .section __TEXT,__launchd_plist,regular,no_dead_strip
        .globl _kw_launchd_plist
        .no_dead_strip _kw_launchd_plist
_kw_launchd_plist:
        .incbin KW_LAUNCHD_PLIST
