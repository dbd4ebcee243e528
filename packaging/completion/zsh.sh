_PROGRAM "$@"
