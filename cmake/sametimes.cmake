# Gives all files of the packages the time in SOURCE_DATE_EPOCH, so that two builds are equal. CPack
# runs this between the installation into its staging folder and the making of the packages.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(
    COMMAND find "${CPACK_TEMPORARY_DIRECTORY}" -exec touch -h -d "@$ENV{SOURCE_DATE_EPOCH}" {} +
            COMMAND_ERROR_IS_FATAL ANY)
endif()
