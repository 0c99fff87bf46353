#include "backend/services/transcoder/filters/filter_table.h"

#include <sstream>

namespace weir {

namespace {

// A filter a line: its name and its options, those that read a file with "<", those that are refused with "-" ahead.
// An indented line goes on with the one before. Not here: filters that write files, open sockets, load code or models,
// read media, feed or drain a graph from outside, or print a line for each frame.
constexpr const char* table = R"(
abitscope rate r size s colors mode m
acompressor level_in mode threshold ratio attack release makeup knee link detection level_sc mix
acontrast contrast
acopy
acrossfade nb_samples ns duration d overlap o curve1 c1 curve2 c2
acrossover split order level gain precision
acrusher level_in level_out bits mix mode dc aa samples lfo lforange lforate
acue cue preroll buffer
addroi x y w h qoffset clear
adeclick window w overlap o arorder a threshold t burst b method m
adeclip window w overlap o arorder a threshold t hsize n method m
adecorrelate stages seed
adelay delays all
adenorm level type
aderivative
adrawgraph m1 fg1 m2 fg2 m3 fg3 m4 fg4 bg min max mode slide size s rate r
adynamicequalizer threshold dfrequency dqfactor tfrequency tqfactor attack release knee ratio makeup range slew mode
  tftype
adynamicsmooth sensitivity basefreq
aecho in_gain out_gain delays decays
aemphasis level_in level_out mode type
aeval exprs channel_layout c
aevalsrc exprs nb_samples n sample_rate s duration d channel_layout c
aexciter level_in level_out amount drive blend freq ceil listen
afade type t start_sample ss nb_samples ns start_time st duration d curve c
afftdn noise_reduction nr noise_floor nf noise_type nt band_noise bn residual_floor rf track_noise tn track_residual
  tr output_mode om adaptivity ad floor_offset fo noise_link nl band_multiplier bm sample_noise sn gain_smooth gs
afftfilt real imag win_size win_func overlap
afifo
afir dry wet length gtype irgain irfmt maxir response channel size rate minp maxp nbirs ir precision
afirsrc taps t frequency f magnitude m phase p sample_rate r nb_samples n win_func w
aformat sample_fmts f sample_rates r channel_layouts cl
afreqshift shift level order
afwtdn sigma levels wavet percent profile adaptive samples softness
agate level_in mode range threshold ratio attack release makeup knee detection link level_sc
agraphmonitor size s opacity o mode m flags f rate r
ahistogram dmode rate r size s scale ascale acount rheight slide hmode
aiir zeros z poles p gains k dry wet format f process r precision e normalize n mix response channel size rate
aintegral
ainterleave nb_inputs n duration
alatency
alimiter level_in level_out limit attack release asc asc_level level latency
allpass frequency f width_type t width w mix m channels c normalize n order o transform a precision r
allrgb rate r duration d sar
allyuv rate r duration d sar
aloop loop size start
alphaextract
alphamerge eof_action shortest repeatlast
amerge inputs
amix inputs duration dropout_transition weights normalize
amplify radius factor threshold tolerance low high planes
amultiply
anequalizer params curves size mgain fscale colors
anlmdn strength s patch p research r output o smooth m
anlmf order mu eps leakage out_mode
anlms order mu eps leakage out_mode
anoisesrc sample_rate r amplitude a duration d color colour c seed s nb_samples n
anull
anullsink
anullsrc channel_layout cl sample_rate r nb_samples n duration d
apad packet_size pad_len whole_len pad_dur whole_dur
aphasemeter rate r size s rc gc bc mpc video phasing tolerance t angle a duration d
aphaser in_gain out_gain delay decay speed type
aphaseshift shift level order
apsyclip level_in level_out clip diff adaptive iterations level
apulsator level_in level_out mode amount offset_l offset_r width timing bpm ms hz
arealtime limit speed
aresample sample_rate ich in_channel_count och out_channel_count uch used_channel_count isr in_sample_rate osr
  out_sample_rate isf in_sample_fmt osf out_sample_fmt tsf internal_sample_fmt icl in_channel_layout ocl
  out_channel_layout ichl in_chlayout ochl out_chlayout clev center_mix_level slev surround_mix_level lfe_mix_level
  rmvol rematrix_volume rematrix_maxval flags swr_flags dither_scale dither_method filter_size phase_shift
  linear_interp exact_rational cutoff resample_cutoff resampler precision cheby min_comp min_hard_comp comp_duration
  max_soft_comp async first_pts matrix_encoding filter_type kaiser_beta output_sample_bits
areverse
asdr
asegment timestamps samples
aselect expr e outputs n
asendcmd commands c <filename <f
asetnsamples nb_out_samples n pad p
asetpts expr
asetrate sample_rate r
asettb expr tb
asidedata mode type
asoftclip type threshold output param oversample
aspectralstats win_size win_func overlap
asplit outputs
ass <filename <f original_size <fontsdir alpha shaping
astats length metadata reset measure_perchannel measure_overall
astreamselect inputs map
asubboost dry wet boost decay feedback cutoff slope delay channels
asubcut cutoff order level
asupercut cutoff order level
asuperpass centerf order qfactor level
asuperstop centerf order qfactor level
atadenoise 0a 0b 1a 1b 2a 2b s p a 0s 1s 2s
atempo tempo
atilt freq slope width order level
atrim start starti end endi start_pts end_pts duration durationi start_sample end_sample
avectorscope mode m rate r size s rc gc bc ac rf gf bf af zoom draw scale swap mirror
avgblur sizeX planes sizeY
avgblur_opencl sizeX planes sizeY
avgblur_vulkan sizeX planes sizeY
avsynctest size s framerate fr samplerate sr amplitude a period p delay dl cycle c duration d fg bg ag
axcorrelate size algo
bandpass frequency f width_type t width w csg mix m channels c normalize n transform a precision r blocksize b
bandreject frequency f width_type t width w mix m channels c normalize n transform a precision r blocksize b
bass frequency f width_type t width w gain g poles p mix m channels c normalize n transform a precision r blocksize b
bbox min_val
bilateral sigmaS sigmaR planes
biquad a0 a1 a2 b0 b1 b2 mix m channels c normalize n transform a precision r blocksize b
bitplanenoise bitplane filter
blackdetect d black_min_duration picture_black_ratio_th pic_th pixel_black_th pix_th
blend c0_mode c1_mode c2_mode c3_mode all_mode c0_expr c1_expr c2_expr c3_expr all_expr c0_opacity c1_opacity
  c2_opacity c3_opacity all_opacity eof_action shortest repeatlast
blend_vulkan c0_mode c1_mode c2_mode c3_mode all_mode c0_opacity c1_opacity c2_opacity c3_opacity all_opacity
blockdetect period_min period_max planes
blurdetect high low radius block_pct block_width block_height planes
bm3d sigma block bstep group range mstep thmse hdthr estim ref planes
boxblur luma_radius lr luma_power lp chroma_radius cr chroma_power cp alpha_radius ar alpha_power ap
boxblur_opencl luma_radius lr luma_power lp chroma_radius cr chroma_power cp alpha_radius ar alpha_power ap
bs2b profile fcut feed
bwdif mode parity deint
cas strength planes
cellauto <filename <f pattern p rate r size s rule random_fill_ratio ratio random_seed seed scroll start_full full
  stitch
channelmap map channel_layout
channelsplit channel_layout channels
chorus in_gain out_gain delays decays speeds depths
chromaber_vulkan dist_x dist_y
chromahold color similarity blend yuv
chromakey color similarity blend yuv
chromakey_cuda color similarity blend yuv
chromanr thres sizew sizeh stepw steph threy threu threv distance
chromashift cbh cbv crh crv edge
ciescope system cie gamuts size s intensity i contrast corrgamma showwhite gamma fill
codecview mv qp mv_type mvt frame_type ft block
color color c size s rate r duration d sar
colorbalance rs gs bs rm gm bm rh gh bh pl
colorchannelmixer rr rg rb ra gr gg gb ga br bg bb ba ar ag ab aa pc pa
colorchart rate r duration d sar patch_size preset
colorcontrast rc gm by rcw gmw byw pl
colorcorrect rl bl rh bh saturation analyze
colorhold color similarity blend
colorize hue saturation lightness mix
colorkey color similarity blend
colorkey_opencl color similarity blend
colorlevels rimin gimin bimin aimin rimax gimax bimax aimax romin gomin bomin aomin romax gomax bomax aomax preserve
colormap patch_size nb_patches type kernel
colormatrix src dst
colorspace all space range primaries trc format fast dither wpadapt iall ispace irange iprimaries itrc
colorspectrum size s rate r duration d sar type
colortemperature temperature mix pl
compand attacks decays points soft-knee gain volume delay
compensationdelay mm cm m dry wet temp
concat n v a unsafe
convolution 0m 1m 2m 3m 0rdiv 1rdiv 2rdiv 3rdiv 0bias 1bias 2bias 3bias 0mode 1mode 2mode 3mode
convolution_opencl 0m 1m 2m 3m 0rdiv 1rdiv 2rdiv 3rdiv 0bias 1bias 2bias 3bias
convolve planes impulse noise eof_action shortest repeatlast
copy
cover_rect <cover mode
crop out_w w out_h h x y keep_aspect exact
crossfeed strength range slope level_in level_out block_size
crystalizer i c
cue cue preroll buffer
curves preset master m red r green g blue b all <psfile -plot
datascope size s x y mode axis opacity format components
dblur angle radius planes
dcshift shift limitergain
dctdnoiz sigma s overlap expr e n
deband 1thr 2thr 3thr 4thr range r direction d blur b coupling c
deblock filter block alpha beta gamma delta planes
decimate cycle dupthresh scthresh blockx blocky ppsrc chroma
deconvolve planes impulse noise eof_action shortest repeatlast
dedot m lt tl tc ct
deesser i m f s
deflate threshold0 threshold1 threshold2 threshold3
deflicker size s mode m bypass
deinterlace_qsv mode
deinterlace_vaapi mode rate auto
dejudder cycle
delogo x y w h show
denoise_vaapi denoise
deshake x y w h rx ry edge blocksize contrast search -filename opencl
deshake_opencl tripod debug adaptive_crop refine_features smooth_strength smooth_window_multiplier
despill type mix expand red green blue brightness alpha
detelecine first_field pattern start_frame
dialoguenhance original enhance voice
dilation coordinates threshold0 threshold1 threshold2 threshold3
dilation_opencl threshold0 threshold1 threshold2 threshold3 coordinates
displace edge
doubleweave first_field
drawbox x y width w height h color c thickness t replace box_source
drawgraph m1 fg1 m2 fg2 m3 fg3 m4 fg4 bg min max mode slide size s rate r
drawgrid x y width w height h color c thickness t replace
drawtext <fontfile text <textfile fontcolor fontcolor_expr boxcolor bordercolor shadowcolor box boxborderw
  line_spacing fontsize x y shadowx shadowy borderw tabsize basetime font expansion timecode tc24hmax timecode_rate r
  rate reload alpha fix_bounds start_number text_source text_shaping ft_load_flags
drmeter length
dynaudnorm framelen f gausssize g peak p maxgain m targetrms r coupling n correctdc c altboundary b compress s
  threshold t channels h overlap o
earwax
edgedetect high low mode planes
elbg codebook_length l nb_steps n seed s pal8 use_alpha
entropy mode
epx n
eq contrast brightness saturation gamma gamma_r gamma_g gamma_b gamma_weight eval
equalizer frequency f width_type t width w gain g mix m channels c normalize n transform a precision r blocksize b
erosion coordinates threshold0 threshold1 threshold2 threshold3
erosion_opencl threshold0 threshold1 threshold2 threshold3 coordinates
estdif mode parity deint rslope redge ecost mcost dcost interp
exposure exposure black
extractplanes planes
extrastereo m c
fade type t start_frame s nb_frames n alpha start_time st duration d color c
feedback x y w h
fftdnoiz sigma amount block overlap method prev next planes window
fftfilt dc_Y dc_U dc_V weight_Y weight_U weight_V eval
field type
fieldhint <hint mode
fieldmatch order mode ppsrc field mchroma y0 y1 scthresh combmatch combdbg cthresh chroma blockx blocky combpel
fieldorder order
fifo
fillborders left right top bottom mode color
find_rect <object threshold mipmaps xmin ymin xmax ymax discard
firequalizer gain gain_entry delay accuracy wfunc fixed multi zero_phase scale -dumpfile dumpscale fft2 min_phase
flanger delay depth regen width speed shape phase interp
flip_vulkan
flite list_voices nb_samples n text <textfile v voice
floodfill x y s0 s1 s2 s3 d0 d1 d2 d3
format pix_fmts
fps fps start_time round eof_action
framepack format
framerate fps interp_start interp_end scene flags
framestep step
freezedetect n noise d duration
freezeframes first last replace
fspp quality qp strength use_bframe_qp
gblur sigma steps planes sigmaV
gblur_vulkan sigma sigmaV planes size sizeV
geq lum_expr lum cb_expr cb cr_expr cr alpha_expr a red_expr r green_expr g blue_expr b interpolation i
gradfun strength radius
gradients size s rate r c0 c1 c2 c3 c4 c5 c6 c7 x0 y0 x1 y1 nb_colors n seed duration d speed type t
graphmonitor size s opacity o mode m flags f rate r
grayworld
greyedge difford minknorm sigma
guided radius eps mode sub guidance planes
haas level_in level_out side_gain middle_source middle_phase left_delay left_balance left_gain left_phase right_delay
  right_balance right_gain right_phase
haldclut clut interp eof_action shortest repeatlast
haldclutsrc level rate r duration d sar
hdcd disable_autoconvert process_stereo cdt_ms force_pe analyze_mode bits_per_sample
headphone map gain lfe type size hrir
hflip
hflip_vulkan
highpass frequency f width_type t width w poles p mix m channels c normalize n transform a precision r blocksize b
highshelf frequency f width_type t width w gain g poles p mix m channels c normalize n transform a precision r
  blocksize b
hilbert sample_rate r taps t nb_samples n win_func w
histeq strength intensity antibanding
histogram level_height scale_height display_mode d levels_mode m components c fgopacity f bgopacity b colors_mode l
hqdn3d luma_spatial chroma_spatial luma_tmp chroma_tmp
hqx n
hstack inputs shortest
hsvhold hue sat val similarity blend
hsvkey hue sat val similarity blend
hue h s H b
huesaturation hue saturation intensity colors strength rw gw bw lightness
hwdownload
hwmap mode derive_device reverse
hwupload derive_device
hwupload_cuda device
hysteresis planes threshold eof_action shortest repeatlast
identity eof_action shortest repeatlast
idet intl_thres prog_thres rep_thres half_life analyze_interlaced_flag
il luma_mode l chroma_mode c alpha_mode a luma_swap ls chroma_swap cs alpha_swap as
inflate threshold0 threshold1 threshold2 threshold3
interlace scan lowpass
interleave nb_inputs n duration
join inputs channel_layout map
kerndeint thresh map order sharp twoway
kirsch planes scale delta
lagfun decay planes
latency
lenscorrection cx cy k1 k2 i fc
libplacebo w h format force_original_aspect_ratio force_divisible_by normalize_sar pad_crop_ratio colorspace range
  color_primaries color_trc upscaler downscaler lut_entries antiringing sigmoid apply_filmgrain apply_dolbyvision
  deband deband_iterations deband_threshold deband_radius deband_grain brightness contrast saturation hue gamma
  peak_detect smoothing_period minimum_peak scene_threshold_low scene_threshold_high overshoot intent gamut_mode
  tonemapping tonemapping_param tonemapping_mode inverse_tonemapping tonemapping_crosstalk tonemapping_lut_size
  desaturation_strength desaturation_exponent gamut_warning gamut_clipping dithering dither_lut_size dither_temporal
  cones cone-strength -custom_shader_path -custom_shader_bin skip_aa polar_cutoff disable_linear disable_builtin
  force_icc_lut force_dither disable_fbos
life <filename <f size s rate r rule random_fill_ratio ratio random_seed seed stitch mold life_color death_color
  mold_color
limitdiff threshold elasticity reference planes
limiter min max planes
loop loop size start
loudnorm I i LRA lra TP tp measured_I measured_i measured_LRA measured_lra measured_TP measured_tp measured_thresh
  offset linear dual_mono print_format
lowpass frequency f width_type t width w poles p mix m channels c normalize n transform a precision r blocksize b
lowshelf frequency f width_type t width w gain g poles p mix m channels c normalize n transform a precision r
  blocksize b
lumakey threshold tolerance softness
lut c0 c1 c2 c3 y u v r g b a
lut1d <file interp
lut2 c0 c1 c2 c3 d eof_action shortest repeatlast
lut3d <file clut interp
lutrgb c0 c1 c2 c3 y u v r g b a
lutyuv c0 c1 c2 c3 y u v r g b a
mandelbrot size s rate r maxiter start_x start_y start_scale end_scale end_pts bailout morphxf morphyf morphamp outer
  inner
maskedclamp undershoot overshoot planes
maskedmax planes
maskedmerge planes
maskedmin planes
maskedthreshold threshold planes
maskfun low high planes fill sum
mcompand args
median radius planes radiusV percentile
mergeplanes mapping format map0s map0p map1s map1p map2s map2p map3s map3p
mestimate method mb_size search_param
midequalizer planes
minterpolate fps mi_mode mc_mode me_mode me mb_size search_param vsbmc scd scd_threshold
mix inputs weights scale planes duration
monochrome cb cr size high
morpho mode planes structure eof_action shortest repeatlast
mpdecimate max hi lo frac
mptestsrc rate r duration d test t max_frames m
msad eof_action shortest repeatlast
multiply scale offset planes
negate components negate_alpha
nlmeans s p pc r rc
nlmeans_opencl s p pc r rc
noformat pix_fmts
noise all_seed all_strength alls all_flags allf c0_seed c0_strength c0s c0_flags c0f c1_seed c1_strength c1s c1_flags
  c1f c2_seed c2_strength c2s c2_flags c2f c3_seed c3_strength c3s c3_flags c3f
normalize blackpt whitept smoothing independence strength
null
nullsink
nullsrc size s rate r duration d sar
oscilloscope x y s t o tx ty tw th c g st sc
overlay x y eof_action eval shortest format repeatlast alpha
overlay_cuda x y eof_action eval shortest repeatlast
overlay_opencl x y
overlay_qsv x y w h alpha eof_action shortest repeatlast
overlay_vaapi x y w h alpha
overlay_vulkan x y
owdenoise depth luma_strength ls chroma_strength cs
pad width w height h x y color eval aspect
pad_opencl width w height h x y color aspect
pal100bars size s rate r duration d sar
pal75bars size s rate r duration d sar
palettegen max_colors reserve_transparent transparency_color stats_mode use_alpha
paletteuse dither bayer_scale diff_mode new alpha_threshold use_alpha -debug_kdtree color_search mean_err
  debug_accuracy
pan args
perspective x0 y0 x1 y1 x2 y2 x3 y3 interpolation sense eval
phase mode
photosensitivity frames f threshold t skip bypass
pixdesctest
pixelize width w height h mode m planes p
pixscope x y w h o wx wy
pp subfilters
pp7 qp mode
premultiply planes inplace
prewitt planes scale delta
prewitt_opencl planes scale delta
procamp_vaapi b brightness s saturatio c contrast h hue
pseudocolor c0 c1 c2 c3 index i preset p opacity
pullup jl jr jt jb sb mp
qp qp
random frames seed
readeia608 scan_min scan_max spw chp lp
readvitc scan_max thr_b thr_w
realtime limit speed
remap format fill
remap_opencl interp fill
removegrain m0 m1 m2 m3
removelogo <filename <f
repeatfields
replaygain
reverse
rgbashift rh rv gh gv bh bv ah av edge
rgbtestsrc size s rate r duration d sar complement co
roberts planes scale delta
roberts_opencl planes scale delta
rotate angle a out_w ow out_h oh fillcolor c bilinear
rubberband tempo pitch transients detector phase window smoothing formant pitchq channels
sab luma_radius lr luma_pre_filter_radius lpfr luma_strength ls chroma_radius cr chroma_pre_filter_radius cpfr
  chroma_strength cs
scale w width h height flags interl in_color_matrix out_color_matrix in_range out_range in_v_chr_pos in_h_chr_pos
  out_v_chr_pos out_h_chr_pos force_original_aspect_ratio force_divisible_by param0 param1 eval sws_flags srcw srch
  dstw dsth src_format dst_format src_range dst_range src_v_chr_pos src_h_chr_pos dst_v_chr_pos dst_h_chr_pos
  sws_dither gamma alphablend threads
scale2ref w width h height flags interl in_color_matrix out_color_matrix in_range out_range in_v_chr_pos in_h_chr_pos
  out_v_chr_pos out_h_chr_pos force_original_aspect_ratio force_divisible_by param0 param1 eval sws_flags srcw srch
  dstw dsth src_format dst_format src_range dst_range src_v_chr_pos src_h_chr_pos dst_v_chr_pos dst_h_chr_pos
  sws_dither gamma alphablend threads
scale_cuda w h interp_algo format passthrough param force_original_aspect_ratio force_divisible_by
scale_qsv w h format mode
scale_vaapi w h format mode out_color_matrix out_range out_color_primaries out_color_transfer out_chroma_location
  force_original_aspect_ratio force_divisible_by
scale_vulkan w h scaler format out_range
scdet threshold t sc_pass s
scharr planes scale delta
scroll horizontal h vertical v hpos vpos
segment timestamps frames
select expr e outputs n
selectivecolor correction_method reds yellows greens cyans blues magentas whites neutrals blacks <psfile
sendcmd commands c <filename <f
separatefields
setdar dar ratio r max
setfield mode
setparams field_mode range color_primaries color_trc colorspace
setpts expr
setrange range
setsar sar ratio r max
settb expr tb
sharpness_vaapi sharpness
shear shx shy fillcolor c interp
showcqt size s fps rate r bar_h axis_h sono_h fullhd sono_v volume bar_v volume2 sono_g gamma bar_g gamma2 bar_t
  timeclamp tc attack basefreq endfreq coeffclamp tlength count fcount <fontfile font fontcolor <axisfile axis text
  csp cscheme
showfreqs size s rate r mode ascale fscale win_size win_func overlap averaging colors cmode minamp data channels
showpalette s
showspatial size s win_size win_func overlap
showspectrum size s slide mode color scale fscale saturation win_func orientation overlap gain data rotation start
  stop fps legend drange limit opacity
showspectrumpic size s mode color scale fscale saturation win_func orientation gain legend rotation start stop drange
  limit opacity
showvolume rate r b w h f c t v dm dmc o s p m ds
showwaves size s mode n rate r split_channels colors scale draw
showwavespic size s split_channels colors scale draw filter
shuffleframes mapping
shufflepixels direction d mode m width w height h seed s
shuffleplanes map0 map1 map2 map3
sidechaincompress level_in mode threshold ratio attack release makeup knee link detection level_sc mix
sidechaingate level_in mode range threshold ratio attack release makeup knee detection link level_sc
sidedata mode type
sierpinski size s rate r seed jump type
signalstats stat out c color
silencedetect n noise d duration mono m
silenceremove start_periods start_duration start_threshold start_silence start_mode stop_periods stop_duration
  stop_threshold stop_silence stop_mode detection window
sinc sample_rate r nb_samples n hp lp phase beta att round hptaps lptaps
sine frequency f beep_factor b sample_rate r duration d samples_per_frame
siti print_summary
smartblur luma_radius lr luma_strength ls luma_threshold lt chroma_radius cr chroma_strength cs chroma_threshold ct
smptebars size s rate r duration d sar
smptehdbars size s rate r duration d sar
sobel planes scale delta
sobel_opencl planes scale delta
sofalizer <sofa gain rotation elevation radius type speakers lfegain framesize normalize interpolate minphase
  anglestep radstep
spectrumsynth sample_rate channels scale slide win_func overlap orientation
speechnorm peak p expansion e compression c threshold t raise r fall f channels h invert i link l
split outputs
spp quality qp mode use_bframe_qp dct idct
stereo3d in out
stereotools level_in level_out balance_in balance_out softclip mutel muter phasel phaser mode slev sbal mlev mpan base
  delay sclevel phase bmode_in bmode_out
stereowiden delay feedback crossfeed drymix
streamselect inputs map
subtitles <filename <f original_size <fontsdir alpha charenc stream_index si force_style
super2xsai
superequalizer 1b 2b 3b 4b 5b 6b 7b 8b 9b 10b 11b 12b 13b 14b 15b 16b 17b 18b
surround chl_out chl_in level_in level_out lfe lfe_low lfe_high lfe_mode angle fc_in fc_out fl_in fl_out fr_in fr_out
  sl_in sl_out sr_in sr_out bl_in bl_out br_in br_out bc_in bc_out lfe_in lfe_out allx ally fcx flx frx blx brx slx
  srx bcx fcy fly fry bly bry sly sry bcy win_size win_func overlap
swaprect w h x1 y1 x2 y2
swapuv
tblend c0_mode c1_mode c2_mode c3_mode all_mode c0_expr c1_expr c2_expr c3_expr all_expr c0_opacity c1_opacity
  c2_opacity c3_opacity all_opacity
telecine first_field pattern
testsrc size s rate r duration d sar decimals n
testsrc2 size s rate r duration d sar alpha
thistogram width w display_mode d levels_mode m components c bgopacity b envelope e ecolor ec slide
threshold planes
thumbnail n
thumbnail_cuda n
tile layout nb_frames margin padding color overlap init_padding
tiltshelf frequency f width_type t width w gain g poles p mix m channels c normalize n transform a precision r
  blocksize b
tinterlace mode
tlut2 c0 c1 c2 c3
tmedian radius planes percentile
tmidequalizer radius sigma planes
tmix frames weights scale planes
tonemap tonemap param desat peak
tonemap_opencl tonemap transfer t matrix m primaries p range r format peak param desat threshold
tonemap_vaapi format matrix m primaries p transfer t
tpad start stop start_mode stop_mode start_duration stop_duration color
transpose dir passthrough
transpose_opencl dir passthrough
transpose_vaapi dir passthrough
transpose_vulkan dir passthrough
treble frequency f width_type t width w gain g poles p mix m channels c normalize n transform a precision r blocksize
  b
tremolo f d
trim start starti end endi start_pts end_pts duration durationi start_frame end_frame
unpremultiply planes inplace
unsharp luma_msize_x lx luma_msize_y ly luma_amount la chroma_msize_x cx chroma_msize_y cy chroma_amount ca
  alpha_msize_x ax alpha_msize_y ay alpha_amount aa
unsharp_opencl luma_msize_x lx luma_msize_y ly luma_amount la chroma_msize_x cx chroma_msize_y cy chroma_amount ca
untile layout
v360 input output interp w h in_stereo out_stereo in_forder out_forder in_frot out_frot in_pad out_pad fin_pad
  fout_pad yaw pitch roll rorder h_fov v_fov d_fov h_flip v_flip d_flip ih_flip iv_flip in_trans out_trans ih_fov
  iv_fov id_fov h_offset v_offset alpha_mask reset_rot
vaguedenoiser threshold method nsteps percent planes type
varblur min_r max_r planes eof_action shortest repeatlast
vectorscope mode m x y intensity i envelope e graticule g opacity o flags f bgopacity b lthreshold l hthreshold h
  colorspace c tint0 t0 tint1 t1
vflip
vflip_vulkan
vfrdet
vibrance intensity rbal gbal bbal rlum glum blum alternate
vibrato f d
vif
vignette angle a x0 y0 mode eval dither aspect
virtualbass cutoff strength
volume volume precision eval replaygain replaygain_preamp replaygain_noclip
volumedetect
vpp_qsv deinterlace denoise detail framerate procamp hue saturation contrast brightness transpose cw ch cx cy w width
  h height format async_depth scale_mode
vstack inputs shortest
w3fdif filter mode parity deint
waveform mode m intensity i mirror r display d components c envelope e filter f graticule g opacity o flags fl scale s
  bgopacity b tint0 t0 tint1 t1 fitmode fm
weave first_field
xbr n
xcorrelate planes secondary eof_action shortest repeatlast
xfade transition duration offset expr
xfade_opencl transition -source -kernel duration offset
xmedian inputs planes percentile eof_action shortest repeatlast
xstack inputs layout grid shortest fill
yadif mode parity deint
yadif_cuda mode parity deint
yaepblur radius r planes p sigma s
yuvtestsrc size s rate r duration d sar
zoompan zoom z x y d s fps
zscale w width h height size s dither d filter f out_range range r primaries p transfer t matrix m in_range rangein
  rin primariesin pin transferin tin matrixin min chromal c chromalin cin npl agamma param_a param_b
)";

FilterTable parse(const char* text) {
  FilterTable filters;
  AllowedFilter* filter = nullptr;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    if (!line.starts_with(' ') && words >> word) filter = &filters[word];
    while (words >> word) {
      FilterOptionKind kind = FilterOptionKind::plain;
      if (word[0] == '<') kind = FilterOptionKind::reads_file;
      if (word[0] == '-') kind = FilterOptionKind::refused;
      if (kind != FilterOptionKind::plain) {
        filter->only_plain = false;
        word.erase(0, 1);
      }
      filter->options.emplace(word, kind);
    }
  }
  return filters;
}

}  // namespace

const FilterTable& get_filter_table() {
  static const FilterTable filters = parse(table);
  return filters;
}

}  // namespace weir
