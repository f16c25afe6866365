# STEP=sign: signs BUNDLE as IDENTITY under the hardened runtime. STEP=notarise: has it checked by Apple with the
# credentials of PROFILE, by way of the archive ZIP, and staples the ticket to it. codesign(1), notarytool(1), stapler(1).
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "failed (${status}): ${command}")
    endif()
endfunction()

if(NOT IDENTITY)
    message(FATAL_ERROR "No signing identity. Configure with\n"
        "  -DFOLIDEX_SIGN_IDENTITY=\"Developer ID Application: NAME (TEAM)\"\n"
        "`security find-identity -v -p codesigning` lists those in the keychain. A certificate of this kind comes with "
        "membership in the Apple Developer Program. For this Mac alone \"-\" signs without one.")
endif()
if(STEP STREQUAL "notarise" AND (NOT PROFILE OR IDENTITY STREQUAL "-"))
    message(FATAL_ERROR "Notarising needs a Developer ID identity (FOLIDEX_SIGN_IDENTITY) and Apple's credentials. "
        "Store them once by\n  xcrun notarytool store-credentials PROFILE --apple-id ADDRESS --team-id TEAM\n"
        "and configure with -DFOLIDEX_NOTARY_PROFILE=PROFILE.")
endif()

if(STEP STREQUAL "sign")
    set(timestamp --timestamp)
    if(IDENTITY STREQUAL "-")
        set(timestamp --timestamp=none)
    endif()
    run(codesign --force --options runtime ${timestamp} --sign "${IDENTITY}" "${BUNDLE}")
    run(codesign --verify --strict --verbose=2 "${BUNDLE}")
elseif(STEP STREQUAL "notarise")
    run(ditto -c -k --keepParent "${BUNDLE}" "${ZIP}")
    run(xcrun notarytool submit "${ZIP}" --keychain-profile "${PROFILE}" --wait)
    run(xcrun stapler staple "${BUNDLE}")
endif()
