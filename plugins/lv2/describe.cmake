# Writes what hosts read before they load the module: manifest.ttl, which names the plugins, and
# jurn.ttl, their ports. The ports stand in the order that plugin.h tells.
set(turtle "@prefix atom: <http://lv2plug.in/ns/ext/atom#> .
@prefix doap: <http://usefulinc.com/ns/doap#> .
@prefix foaf: <http://xmlns.com/foaf/0.1/> .
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix patch: <http://lv2plug.in/ns/ext/patch#> .
@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .
@prefix pprop: <http://lv2plug.in/ns/ext/port-props#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .
@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .
@prefix rsz: <http://lv2plug.in/ns/ext/resize-port#> .
@prefix state: <http://lv2plug.in/ns/ext/state#> .
@prefix units: <http://lv2plug.in/ns/extensions/units#> .
@prefix urid: <http://lv2plug.in/ns/ext/urid#> .
@prefix work: <http://lv2plug.in/ns/ext/worker#> .
")
set(manifest "${turtle}")

# Of several bundles hosts keep the one with the larger version; odd numbers mark what is no release.
math(EXPR minor "2 * (100 * ${PROJECT_VERSION_MAJOR} + ${PROJECT_VERSION_MINOR})")
math(EXPR micro "2 * ${PROJECT_VERSION_PATCH}")

# Each of these appends a port to the plugin that is being written.
macro(port text)
  list(APPEND ports "[\n    lv2:index ${index} ; ${text}\n  ]")
  math(EXPR index "${index} + 1")
endmacro()
macro(audio direction count)
  foreach(number RANGE 1 ${count})
    set(label "${direction} ${number}")
    set(more "")
    if(${count} EQUAL 2)
      set(side_1 left)
      set(side_2 right)
      set(more " ; lv2:designation pg:${side_${number}}")
    endif()
    string(TOLOWER "${direction}_${number}" symbol)
    port("a lv2:AudioPort, lv2:${direction}putPort ; lv2:symbol \"${symbol}\" ; lv2:name \"${label}\"${more}")
  endforeach()
endmacro()
macro(control symbol label default minimum maximum)
  port("a lv2:ControlPort, lv2:InputPort ; lv2:symbol \"${symbol}\" ; lv2:name \"${label}\" ;
    lv2:default ${default} ; lv2:minimum ${minimum} ; lv2:maximum ${maximum}${ARGN}")
endmacro()

# begin(NAME LABEL CLASS INPUTS OUTPUTS): up to the controls; OPTIONS: BYPASS.
macro(begin name label class inputs outputs)
  set(head "<urn:jurn:${name}> a lv2:Plugin, lv2:${class}, doap:Project ;
  doap:name \"${label}\" ; doap:license <http://opensource.org/licenses/MIT> ;
  doap:maintainer [ foaf:name \"the JURN authors\" ] ;
  lv2:minorVersion ${minor} ; lv2:microVersion ${micro} ;
  lv2:optionalFeature lv2:hardRTCapable, work:schedule ;
  lv2:extensionData work:interface, state:interface")
  set(ports "")
  set(index 0)
  audio(In ${inputs})
  audio(Out ${outputs})
  port("a lv2:ControlPort, lv2:OutputPort ; lv2:symbol \"latency\" ; lv2:name \"Latency\" ;
    lv2:designation lv2:latency ; lv2:portProperty lv2:reportsLatency, lv2:integer ;
    lv2:minimum 0 ; lv2:maximum 192000 ; lv2:default 0 ; units:unit units:frame")
  if("${ARGN}" STREQUAL BYPASS)
    control(enabled "Enabled" 1 0 1 " ; lv2:designation lv2:enabled ; lv2:portProperty lv2:toggled")
  endif()
  string(APPEND manifest
         "\n<urn:jurn:${name}> a lv2:Plugin ; lv2:binary <jurn${CMAKE_SHARED_MODULE_SUFFIX}> ; rdfs:seeAlso <jurn.ttl> .\n")
endmacro()

# takes_file(PROPERTY LABEL): the ports and the property of a file.
macro(takes_file property label)
  string(APPEND head " ;\n  lv2:requiredFeature urid:map ; patch:writable <urn:jurn:${property}>")
  port("a atom:AtomPort, lv2:InputPort ; lv2:symbol \"control\" ; lv2:name \"Control\" ;
    lv2:designation lv2:control ; atom:bufferType atom:Sequence ; atom:supports patch:Message ;
    rsz:minimumSize 8192")
  port("a atom:AtomPort, lv2:OutputPort ; lv2:symbol \"notify\" ; lv2:name \"Notify\" ;
    lv2:designation lv2:control ; atom:bufferType atom:Sequence ; atom:supports patch:Message ;
    rsz:minimumSize 8192")
  set(property_${property} "\n<urn:jurn:${property}> a lv2:Parameter ; rdfs:label \"${label}\" ; rdfs:range atom:Path .\n")
endmacro()

macro(end)
  list(JOIN ports ", " text)
  string(APPEND turtle "\n${head} ;\n  lv2:port ${text} .\n")
endmacro()

set(decibels " ; units:unit units:db")
set(points "")
set(value 0)
foreach(label Peak "Low shelf" "High shelf" Low-pass High-pass Band-pass Notch All-pass Tilt)
  list(APPEND points "[ rdfs:label \"${label}\" ; rdf:value ${value} ]")
  math(EXPR value "${value} + 1")
endforeach()
list(JOIN points ", " points)
# Two thirds of an octave apart, one third at the top.
set(frequencies 25 40 63 100 160 250 400 630 1000 1600 2500 4000 6300 8000 10000 12500)
# Hosts sort groups by their names, so each number has two digits.
function(two_digits result number)
  string(REGEX REPLACE "^.$" "0\\0" number ${number})
  set(${result} ${number} PARENT_SCOPE)
endfunction()
foreach(band RANGE 1 16)
  two_digits(number ${band})
  string(APPEND turtle "\n<urn:jurn:band-${number}> a pg:Group ; lv2:symbol \"band_${number}\" ; lv2:name \"Band ${number}\" .\n")
endforeach()
foreach(variant "mono;1" "stereo;2")
  list(GET variant 0 name)
  list(GET variant 1 channels)
  begin(equaliser-${name} "JURN Equaliser (${name})" ParaEQPlugin ${channels} ${channels} BYPASS)
  foreach(band RANGE 1 16)
    math(EXPR i "${band} - 1")
    list(GET frequencies ${i} frequency)
    two_digits(number ${band})
    set(group " ; pg:group <urn:jurn:band-${number}>")
    control(on_${band} "On ${band}" 0 0 1 " ; lv2:portProperty lv2:toggled${group}")
    control(type_${band} "Type ${band}" 0 0 8
            " ; lv2:portProperty lv2:integer, lv2:enumeration ; lv2:scalePoint ${points}${group}")
    control(frequency_${band} "Frequency ${band}" ${frequency} 10 22000
            " ; lv2:portProperty pprop:logarithmic ; units:unit units:hz${group}")
    control(gain_${band} "Gain ${band}" 0 -30 30 "${decibels}${group}")
    control(q_${band} "Q ${band}" 0.7071 0.1 30 " ; lv2:portProperty pprop:logarithmic${group}")
  endforeach()
  control(gain "Gain" 0 -30 30 "${decibels}")
  end()

  begin(convolver-${name} "JURN Convolver (${name})" ReverbPlugin ${channels} ${channels} BYPASS)
  control(wet "Wet" 0 -90 24 "${decibels}")
  control(dry "Dry" -90 -90 24 "${decibels}")
  control(truncate "Longest response" 0 0 20 " ; units:unit units:s ;
    lv2:scalePoint [ rdfs:label \"All of it\" ; rdf:value 0 ]")
  control(normalise "Normalise" 0 0 1 " ; lv2:portProperty lv2:toggled")
  takes_file(impulse-response "Impulse response")
  end()
endforeach()

begin(binaural "JURN Binaural" SpatialPlugin 1 2 BYPASS)
control(azimuth "Azimuth" 0 -180 180 " ; units:unit units:degree")
control(elevation "Elevation" 0 -90 90 " ; units:unit units:degree")
control(distance "Distance" 1 0.25 20 " ; units:unit units:m ; lv2:portProperty pprop:logarithmic")
takes_file(responses "Set of responses (SOFA)")
end()

foreach(variant "setup-stereo;2;2 outputs" "setup-8-outputs;8;8 outputs")
  list(GET variant 0 name)
  list(GET variant 1 outputs)
  list(GET variant 2 label)
  begin(${name} "JURN Loudspeaker setup (${label})" FilterPlugin 2 ${outputs})
  takes_file(setup "Setup")
  end()
endforeach()

# preset(VARIANT NAME LABEL CONTROL VALUE ...): settings of an equaliser that differ from its own.
function(preset variant name label)
  set(uri "urn:jurn:preset-${name}-${variant}")
  set(values "")
  while(ARGN)
    list(POP_FRONT ARGN symbol value)
    list(APPEND values "[ lv2:symbol \"${symbol}\" ; pset:value ${value} ]")
  endwhile()
  list(JOIN values " , " values)
  string(APPEND manifest "\n<${uri}> a pset:Preset ; lv2:appliesTo <urn:jurn:equaliser-${variant}> ; rdfs:seeAlso <jurn.ttl> .\n")
  string(APPEND turtle "\n<${uri}> a pset:Preset ; lv2:appliesTo <urn:jurn:equaliser-${variant}> ;
  rdfs:label \"${label}\" ; lv2:port ${values} .\n")
  set(manifest "${manifest}" PARENT_SCOPE)
  set(turtle "${turtle}" PARENT_SCOPE)
endfunction()
foreach(variant mono stereo)
  preset(${variant} voice "Voice: rumble out, presence in" on_1 1 type_1 4 frequency_1 80
         on_2 1 type_2 0 frequency_2 250 gain_2 -3 q_2 1 on_3 1 type_3 0 frequency_3 4000 gain_3 3 q_3 1)
  preset(${variant} bass "Bass: 6 dB more, and as much headroom" on_1 1 type_1 1 frequency_1 100 gain_1 6
         gain -6)
  preset(${variant} telephone "Telephone" on_1 1 type_1 4 frequency_1 300 on_2 1 type_2 4 frequency_2 300
         on_3 1 type_3 3 frequency_3 3400 on_4 1 type_4 3 frequency_4 3400)
endforeach()

string(APPEND turtle "${property_impulse-response}${property_responses}${property_setup}")
file(CONFIGURE OUTPUT ${bundle}/manifest.ttl CONTENT "${manifest}" @ONLY)
file(CONFIGURE OUTPUT ${bundle}/jurn.ttl CONTENT "${turtle}" @ONLY)
