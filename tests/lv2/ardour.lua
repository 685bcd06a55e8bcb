-- A session of Ardour with the equaliser on a track: its gain is heard, and comes back with the session.
-- The dummy backend plays a constant of half of full scale.
local backend = AudioEngine:set_backend("None (Dummy)", "", "")
backend:set_device_name("DC -6dBFS (+.5)")
backend:set_sample_rate(48000)
backend:set_buffer_size(1024)
s = create_session("session", "session", 48000)
local gain = 82 -- the last control; Ardour counts the latency, too
for track in s:new_audio_track(2, 2, nil, 1, "track", ARDOUR.PresentationInfo.max_order,
                               ARDOUR.TrackMode.Normal, true):iter() do
  local plugin = ARDOUR.LuaAPI.new_plugin(s, "urn:jurn:equaliser-stereo", ARDOUR.PluginType.LV2, "")
  track:add_processor_by_index(plugin, 0, nil, true)
  track:input():audio(0):connect("system:capture_1")
  track:monitoring_control():set_value(1, PBD.GroupControlDisposition.NoGroup)
  track:set_meter_point(ARDOUR.MeterPoint.MeterPostFader, true)
  for _, wanted in ipairs({0, -6}) do
    ARDOUR.LuaAPI.set_processor_param(plugin, gain, wanted)
    ARDOUR.LuaAPI.usleep(1500000)
    print("gain " .. wanted .. " peak " .. track:peak_meter():meter_level(0, ARDOUR.MeterType.MeterPeak))
  end
end
s:save_state("", false, false, false, false, false)
close_session()
s = load_session("session", "session")
for track in s:get_tracks():iter() do
  print("loaded " .. ARDOUR.LuaAPI.get_processor_param(track:nth_plugin(0), gain, true))
end
quit()
